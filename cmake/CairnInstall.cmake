# Installation: the two libraries, the headers, the tool, a CMake package and a relocatable pkg-config file.
include( CMakePackageConfigHelpers )

install( TARGETS cairn_shim cairn_platform cairn_common cairn_lt_helper
         EXPORT CairnLtHelperTargets
         FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/CairnLtHelper )
install( EXPORT CairnLtHelperTargets NAMESPACE Cairn::
         DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CairnLtHelper )

configure_package_config_file( cmake/CairnLtHelperConfig.cmake.in
                               ${CMAKE_BINARY_DIR}/CairnLtHelperConfig.cmake
                               INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CairnLtHelper )
write_basic_package_version_file( ${CMAKE_BINARY_DIR}/CairnLtHelperConfigVersion.cmake
                                  COMPATIBILITY SameMajorVersion )
install( FILES ${CMAKE_BINARY_DIR}/CairnLtHelperConfig.cmake
               ${CMAKE_BINARY_DIR}/CairnLtHelperConfigVersion.cmake
         DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CairnLtHelper )

# The prefix is found from where the file lies, so an installed tree may be moved.
file( RELATIVE_PATH CAIRN_PREFIX_FROM_PC
      ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX} )
configure_file( cmake/cairn-lt-helper.pc.in ${CMAKE_BINARY_DIR}/cairn-lt-helper.pc @ONLY )
install( FILES ${CMAKE_BINARY_DIR}/cairn-lt-helper.pc
         DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig )
