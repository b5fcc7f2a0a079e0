# The writer of trace files, for the platform and for those who bring it along.
set( fleetlog_sources
    ${CMAKE_CURRENT_LIST_DIR}/internal/Clock.cpp
    ${CMAKE_CURRENT_LIST_DIR}/internal/NewFile.cpp
    ${CMAKE_CURRENT_LIST_DIR}/internal/OldFiles.cpp
    ${CMAKE_CURRENT_LIST_DIR}/internal/Registry.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MsgDesc.cpp
    ${CMAKE_CURRENT_LIST_DIR}/RingBuf.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TraceFile.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TraceHandle.cpp )
