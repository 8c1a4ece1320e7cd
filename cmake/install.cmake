# What other projects find the installed libraries by: a CMake package and files for pkg-config. No path in them is
# absolute, so the installed tree can be moved.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/qrapi)
install(EXPORT qrapiTargets NAMESPACE qrapi:: DESTINATION ${package_folder})
configure_package_config_file(cmake/qrapiConfig.cmake.in ${CMAKE_BINARY_DIR}/qrapiConfig.cmake
                              INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/qrapiConfigVersion.cmake COMPATIBILITY ${QRAPI_COMPATIBILITY})
install(FILES ${CMAKE_BINARY_DIR}/qrapiConfig.cmake ${CMAKE_BINARY_DIR}/qrapiConfigVersion.cmake
        DESTINATION ${package_folder})

set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
string(REGEX REPLACE "[^/]+" ".." prefix_from_pkgconfig ${pkgconfig_folder})
foreach(name IN ITEMS qrapi qrapi-simulation)
    configure_file(cmake/${name}.pc.in ${CMAKE_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_folder})
endforeach()
