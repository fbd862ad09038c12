# Installation: the DLL, its import library, the headers, and find_package(LUMlog CONFIG).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/LUMlog)

install(
    TARGETS LUMlog
    EXPORT LUMlogTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumlog)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumlog)
# As a source: whoever builds a Java program has a compiler, for the version of Java that it is for.
install(DIRECTORY java/ DESTINATION ${CMAKE_INSTALL_DATADIR}/lumlog/java)
# Scripts for any machine that has Python, which is seldom the one that the logs are from.
install(PROGRAMS tools/perf2trace tools/report2html DESTINATION ${CMAKE_INSTALL_DATADIR}/lumlog/tools)
install(
    DIRECTORY tools/lumlog_tools
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lumlog/tools
    FILES_MATCHING
    PATTERN "*.py"
    PATTERN __pycache__ EXCLUDE)
install(EXPORT LUMlogTargets NAMESPACE LUMlog:: DESTINATION ${package_dir})

configure_package_config_file(cmake/LUMlogConfig.cmake.in ${PROJECT_BINARY_DIR}/package/LUMlogConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/LUMlogConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/LUMlogConfig.cmake
              ${PROJECT_BINARY_DIR}/package/LUMlogConfigVersion.cmake DESTINATION ${package_dir})
