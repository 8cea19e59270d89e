# What is installed. The tools are, too, when they are built.
include(CMakePackageConfigHelpers)

set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Morvellacinto)
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Headers, library, exported target and pkg-config file of one library.
function(morvellacinto_install target)
    cmake_parse_arguments(PC "" "NAME;DESCRIPTION" "REQUIRES;STATIC_LIBS" ${ARGN})
    install(TARGETS ${target} EXPORT ${target} FILE_SET HEADERS)
    install(EXPORT ${target} NAMESPACE Morvellacinto:: DESTINATION ${config_folder})

    # Relative, so that what is installed can be moved.
    file(RELATIVE_PATH PC_PREFIX /${pkgconfig_folder} /)
    set(PC_LIBS ${target})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "STATIC_LIBRARY")
        # By name: what their own files add for --static, such as LDAP for libcurl, is rarely
        # installed, and not needed while they are shared themselves.
        list(APPEND PC_LIBS ${PC_STATIC_LIBS})
    endif()
    list(TRANSFORM PC_LIBS PREPEND -l)
    list(JOIN PC_LIBS " " PC_LIBS)
    configure_file(cmake/morvellacinto.pc.in ${PC_NAME}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${PC_NAME}.pc DESTINATION ${pkgconfig_folder})
endfunction()

set(components scripted)
morvellacinto_install(morvellacinto
    NAME morvellacinto
    DESCRIPTION ${PROJECT_DESCRIPTION}
    STATIC_LIBS stdc++ m) # which are left out where C is linked
morvellacinto_install(morvellacinto_scripted
    NAME morvellacinto-scripted
    DESCRIPTION "A scripted phone to test hosts of Morvellacinto on"
    REQUIRES morvellacinto)
if(MORVELLACINTO_BUILD_LINUX)
    list(APPEND components linux)
    morvellacinto_install(morvellacinto_linux
        NAME morvellacinto-linux
        DESCRIPTION "Morvellacinto's adapter for Linux phones"
        REQUIRES morvellacinto
        STATIC_LIBS curl ssl crypto sqlite3 ${MORVELLACINTO_SDBUS_LIBRARIES})
    list(APPEND components c)
    morvellacinto_install(morvellacinto_c
        NAME morvellacinto-c
        DESCRIPTION "Morvellacinto on Linux phones for hosts in C"
        REQUIRES morvellacinto-linux)
endif()
list(JOIN components ", " components)

configure_package_config_file(cmake/MorvellacintoConfig.cmake.in MorvellacintoConfig.cmake
    INSTALL_DESTINATION ${config_folder})
write_basic_package_version_file(MorvellacintoConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
        ${PROJECT_BINARY_DIR}/MorvellacintoConfig.cmake
        ${PROJECT_BINARY_DIR}/MorvellacintoConfigVersion.cmake
    DESTINATION ${config_folder})
include(MorvellacintoSbom)
install(FILES LICENSE THIRD-PARTY.md ${PROJECT_BINARY_DIR}/morvellacinto.spdx.json
    DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(MORVELLACINTO_BUILD_TOOLS)
    install(TARGETS morvellacinto_host morvellacinto_service)
    foreach(program IN ITEMS morvellacinto morvellacinto-service)
        install(FILES tools/completion/morvellacinto.bash
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${program})
    endforeach()
    install(FILES tools/completion/_morvellacinto
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()
