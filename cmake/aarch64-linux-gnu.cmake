# Debian's cross compiler for aarch64, with the libraries of that architecture that lie beside the host's.
set( CMAKE_SYSTEM_NAME Linux )
set( CMAKE_SYSTEM_PROCESSOR aarch64 )
set( CMAKE_CXX_COMPILER aarch64-linux-gnu-g++ )
