# What is installed, and the Debian packages made of it. The programs are for developers and stay
# in the build folder.
include(CMakePackageConfigHelpers)

set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Morvellacinto)
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Headers, library, exported target and pkg-config file of one library. `runtime` is the package
# that the library itself goes into.
function(morvellacinto_install target runtime)
    cmake_parse_arguments(PC "" "NAME;DESCRIPTION" "REQUIRES;STATIC_REQUIRES" ${ARGN})
    install(TARGETS ${target} EXPORT ${target}
        LIBRARY COMPONENT ${runtime} NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development
        FILE_SET HEADERS COMPONENT development)
    install(EXPORT ${target}
        NAMESPACE Morvellacinto::
        DESTINATION ${config_folder}
        COMPONENT development)

    # Relative, so that what is installed can be moved.
    file(RELATIVE_PATH PC_PREFIX /${pkgconfig_folder} /)
    set(PC_LIBRARY ${target})
    string(REPLACE ";" ", " PC_REQUIRES "${PC_REQUIRES}")
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "STATIC_LIBRARY")
        string(REPLACE ";" ", " PC_REQUIRES_PRIVATE "${PC_STATIC_REQUIRES}")
    endif()
    configure_file(cmake/morvellacinto.pc.in ${PC_NAME}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${PC_NAME}.pc
        DESTINATION ${pkgconfig_folder}
        COMPONENT development)
endfunction()

morvellacinto_install(morvellacinto core
    NAME morvellacinto
    DESCRIPTION ${PROJECT_DESCRIPTION})
morvellacinto_install(morvellacinto_scripted development
    NAME morvellacinto-scripted
    DESCRIPTION "A scripted phone to test hosts of Morvellacinto on"
    REQUIRES morvellacinto)
if(MORVELLACINTO_BUILD_LINUX)
    morvellacinto_install(morvellacinto_linux linux
        NAME morvellacinto-linux
        DESCRIPTION "Morvellacinto's adapter for Linux phones"
        REQUIRES morvellacinto
        STATIC_REQUIRES ${SDBUS_MODULE_NAME} libcurl openssl sqlite3)
endif()

configure_package_config_file(cmake/MorvellacintoConfig.cmake.in MorvellacintoConfig.cmake
    INSTALL_DESTINATION ${config_folder})
write_basic_package_version_file(MorvellacintoConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
        ${PROJECT_BINARY_DIR}/MorvellacintoConfig.cmake
        ${PROJECT_BINARY_DIR}/MorvellacintoConfigVersion.cmake
    DESTINATION ${config_folder}
    COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR Morvellacinto)
set(CPACK_PACKAGE_CONTACT "Morvellacinto's maintainers <maintainers@morvellacinto.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL core linux development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/src/morvellacinto ${PROJECT_BINARY_DIR}/adapters/linux)
set(CPACK_DEBIAN_CORE_PACKAGE_NAME libmorvellacinto${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_CORE_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LINUX_PACKAGE_NAME libmorvellacinto-linux${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LINUX_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmorvellacinto-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CORE_DESCRIPTION "${PROJECT_DESCRIPTION}")
set(CPACK_DEBIAN_LINUX_DESCRIPTION "Adapter of the library for Linux phones")
set(CPACK_COMPONENT_LINUX_DEPENDS core)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Headers of the library, and a scripted phone for tests")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS core linux)
include(CPack)
