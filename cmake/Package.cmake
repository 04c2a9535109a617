# What an installed library comes with, so that others can build against it: its CMake target and a
# pkg-config file, neither of which knows where the tree stands. Each library is an install component
# of its own name.
include(CMakePackageConfigHelpers)
set(ZEM_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/zem)
file(RELATIVE_PATH ZEM_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})

function(zem_install_library name)
    set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME ${name})
    install(TARGETS ${name} EXPORT ${name})
    install(EXPORT ${name} NAMESPACE zem:: FILE zem-${name}.cmake DESTINATION ${ZEM_INSTALL_CMAKEDIR})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

configure_package_config_file(cmake/zemConfig.cmake.in zemConfig.cmake
                              INSTALL_DESTINATION ${ZEM_INSTALL_CMAKEDIR})
write_basic_package_version_file(zemConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zemConfig.cmake ${PROJECT_BINARY_DIR}/zemConfigVersion.cmake
        DESTINATION ${ZEM_INSTALL_CMAKEDIR} COMPONENT zem)
