# The package that find_package(Talvensor COMPONENTS Core Client) reads.
include(CMakePackageConfigHelpers)
set(packageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/Talvensor)

install(EXPORT TalvensorCore
    FILE TalvensorCore.cmake NAMESPACE Talvensor:: DESTINATION ${packageFolder} COMPONENT dev)
if(TALVENSOR_NETWORK)
    install(EXPORT TalvensorClient
        FILE TalvensorClient.cmake NAMESPACE Talvensor:: DESTINATION ${packageFolder} COMPONENT dev)
endif()

configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/TalvensorConfig.cmake.in ${PROJECT_BINARY_DIR}/TalvensorConfig.cmake
    INSTALL_DESTINATION ${packageFolder}
    PATH_VARS TALVENSOR_INSTALL_MODULEDIR TALVENSOR_INSTALL_MODELDIR)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/TalvensorConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
        ${PROJECT_BINARY_DIR}/TalvensorConfig.cmake ${PROJECT_BINARY_DIR}/TalvensorConfigVersion.cmake
    DESTINATION ${packageFolder} COMPONENT dev)
