# `cmake --install`: the library with its headers, the worker, and a package `MeetingCore` for other projects.
include(CMakePackageConfigHelpers)

set(_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/MeetingCore)
configure_package_config_file(cmake/MeetingCoreConfig.cmake.in ${PROJECT_BINARY_DIR}/MeetingCoreConfig.cmake
                              INSTALL_DESTINATION ${_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MeetingCoreConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MeetingCoreConfig.cmake ${PROJECT_BINARY_DIR}/MeetingCoreConfigVersion.cmake
              cmake/FindLibUUID.cmake
        DESTINATION ${_package_dir})
install(EXPORT MeetingCoreTargets NAMESPACE MeetingCore:: DESTINATION ${_package_dir})
