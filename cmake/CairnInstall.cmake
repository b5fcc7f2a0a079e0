# Installation, in components:
#
#   runtime      the two libraries
#   development  their headers, a CMake package, a relocatable pkg-config file
#   kit          the simulated chip, the interposers and the trace reader: static libraries and their headers
#   tool         cairn-lt, its manual pages and its completion
#   python       the Python package (python/CMakeLists.txt)
#   documents    README, docs/
#   examples     examples/
#   reference    the HTML that the target "reference" writes, if it was built
include( CMakePackageConfigHelpers )

set( CAIRN_HEADERS_DIR ${CMAKE_INSTALL_INCLUDEDIR}/CairnLtHelper )
set( CAIRN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/CairnLtHelper )
# The prefix is found from where a pkg-config file lies, so an installed tree may be moved.
file( RELATIVE_PATH CAIRN_PREFIX_FROM_PC
      ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX} )

install( TARGETS cairn_shim cairn_platform cairn_common cairn_lt_helper
         EXPORT CairnLtHelperTargets
         LIBRARY COMPONENT runtime
         FILE_SET HEADERS DESTINATION ${CAIRN_HEADERS_DIR} COMPONENT development )
install( EXPORT CairnLtHelperTargets NAMESPACE Cairn:: DESTINATION ${CAIRN_CMAKE_DIR} COMPONENT development )
configure_package_config_file( cmake/CairnLtHelperConfig.cmake.in
                               ${CMAKE_BINARY_DIR}/CairnLtHelperConfig.cmake
                               INSTALL_DESTINATION ${CAIRN_CMAKE_DIR} )
write_basic_package_version_file( ${CMAKE_BINARY_DIR}/CairnLtHelperConfigVersion.cmake
                                  COMPATIBILITY SameMajorVersion )
install( FILES ${CMAKE_BINARY_DIR}/CairnLtHelperConfig.cmake
               ${CMAKE_BINARY_DIR}/CairnLtHelperConfigVersion.cmake
         DESTINATION ${CAIRN_CMAKE_DIR} COMPONENT development )
configure_file( cmake/cairn-lt-helper.pc.in ${CMAKE_BINARY_DIR}/cairn-lt-helper.pc @ONLY )
install( FILES ${CMAKE_BINARY_DIR}/cairn-lt-helper.pc
         DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development )

install( TARGETS cairn_text cairn_sim cairn_interpose cairn_recorder cairn_trace_reader
         EXPORT CairnLtHelperKitTargets
         ARCHIVE COMPONENT kit
         FILE_SET HEADERS DESTINATION ${CAIRN_HEADERS_DIR} COMPONENT kit )
install( EXPORT CairnLtHelperKitTargets NAMESPACE Cairn:: DESTINATION ${CAIRN_CMAKE_DIR} COMPONENT kit )
configure_file( cmake/cairn-lt-kit.pc.in ${CMAKE_BINARY_DIR}/cairn-lt-kit.pc @ONLY )
install( FILES ${CMAKE_BINARY_DIR}/cairn-lt-kit.pc
         DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT kit )

install( TARGETS cairn-lt RUNTIME COMPONENT tool )
foreach( section 1 5 )
    file( GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.${section} )
    install( FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT tool )
endforeach()
install( FILES tools/completion/cairn-lt.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
         RENAME cairn-lt COMPONENT tool )
# Distributions have a folder of their own for what their packages complete.
set( CAIRN_ZSH_INSTALL_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
     CACHE STRING "Where the completion for zsh is installed, below the prefix" )
install( FILES tools/completion/_cairn-lt DESTINATION ${CAIRN_ZSH_INSTALL_DIR} COMPONENT tool )
install( FILES tools/completion/cairn-lt.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
         COMPONENT tool )

install( FILES README.md CHANGELOG.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents )
install( DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents PATTERN man EXCLUDE )
install( DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT examples )
install( DIRECTORY ${CAIRN_REFERENCE_DIR}/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html COMPONENT reference OPTIONAL )

# What the components hold, and no tests.
add_custom_target( cairn_installed DEPENDS cairn_lt_helper cairn_platform cairn_text cairn_sim cairn_interpose
                                           cairn_recorder cairn_trace_reader cairn-lt )
if( CAIRN_HAS_PYTHON )
    add_dependencies( cairn_installed cairn_python_package )
endif()
