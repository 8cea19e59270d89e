# An overlay port that builds the folder it stands in: vcpkg install morvellacinto --overlay-ports=packaging/vcpkg
get_filename_component(source ${CMAKE_CURRENT_LIST_DIR}/../.. ABSOLUTE)
vcpkg_cmake_configure(SOURCE_PATH ${source})
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME Morvellacinto CONFIG_PATH lib/cmake/Morvellacinto)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE ${CURRENT_PACKAGES_DIR}/debug/include ${CURRENT_PACKAGES_DIR}/debug/share)
vcpkg_install_copyright(FILE_LIST ${source}/LICENSE ${source}/THIRD-PARTY.md)
