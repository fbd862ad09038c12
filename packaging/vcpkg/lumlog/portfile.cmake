# The DLL as the project has built it: Microsoft's compiler cannot build it, and need not, as the C interface is the same for
# all. An overlay port: vcpkg install lumlog --overlay-ports=packaging/vcpkg, with LUMLOG_ZIP naming the ZIP.
if(NOT DEFINED ENV{LUMLOG_ZIP})
    message(FATAL_ERROR "LUMLOG_ZIP has to name LUMlog-${VERSION}-win64.zip; see VCPKG_KEEP_ENV_VARS")
endif()
set(VCPKG_POLICY_ONLY_RELEASE_CRT enabled)
set(VCPKG_POLICY_MISMATCHED_NUMBER_OF_BINARIES enabled)
set(VCPKG_POLICY_DLLS_WITHOUT_EXPORTS enabled) # LUMlogEvents.dll holds texts alone

vcpkg_extract_source_archive(source_path ARCHIVE "$ENV{LUMLOG_ZIP}")

file(INSTALL "${source_path}/include/lumlog" DESTINATION "${CURRENT_PACKAGES_DIR}/include")
file(INSTALL "${source_path}/bin/LUMlog.dll" DESTINATION "${CURRENT_PACKAGES_DIR}/bin")
file(INSTALL "${source_path}/lib/LUMlog.lib" "${source_path}/lib/libLUMlog.dll.a" "${source_path}/lib/cmake"
     DESTINATION "${CURRENT_PACKAGES_DIR}/lib")
file(INSTALL "${source_path}/bin/LUMlogEvents.dll" "${source_path}/bin/LevelSync.exe" "${source_path}/bin/LUMlogWatch.exe"
             "${source_path}/bin/lumlog-admin.exe"
             "${source_path}/bin/LUMlog.dll" DESTINATION "${CURRENT_PACKAGES_DIR}/tools/${PORT}")
vcpkg_cmake_config_fixup(PACKAGE_NAME LUMlog CONFIG_PATH lib/cmake/LUMlog)
file(GLOB licences "${source_path}/share/doc/lumlog/licences/*/*")
vcpkg_install_copyright(FILE_LIST ${licences})
