# The package that a stranger's project finds: find_package(Kesa CONFIG REQUIRED), then link Kesa::HostLib.
include(CMakePackageConfigHelpers)
set(kesa_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Kesa)
configure_package_config_file(cmake/KesaConfig.cmake.in ${PROJECT_BINARY_DIR}/KesaConfig.cmake
    INSTALL_DESTINATION ${kesa_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KesaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KesaConfig.cmake ${PROJECT_BINARY_DIR}/KesaConfigVersion.cmake
    DESTINATION ${kesa_package_dir})
install(EXPORT KesaTargets NAMESPACE Kesa:: DESTINATION ${kesa_package_dir})
