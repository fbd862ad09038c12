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
if(LUMLOG_TOOLS)
    install(TARGETS LevelSync RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
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

# The C interface for compilers with Microsoft's C++ interface.
find_program(LLVM_DLLTOOL NAMES llvm-dlltool-14 llvm-dlltool)
if(LLVM_DLLTOOL)
    set(msvc_library ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/LUMlog.lib)
    add_custom_command(
        OUTPUT ${msvc_library}
        COMMAND ${PROJECT_SOURCE_DIR}/packaging/msvc-import-library.sh ${CMAKE_OBJDUMP} ${LLVM_DLLTOOL}
                $<TARGET_FILE:LUMlog> ${msvc_library}
        DEPENDS LUMlog ${PROJECT_SOURCE_DIR}/packaging/msvc-import-library.sh
        COMMENT "Making the import library for Microsoft's linker"
        VERBATIM)
    add_custom_target(msvc_import_library ALL DEPENDS ${msvc_library})
    install(FILES ${msvc_library} DESTINATION ${CMAKE_INSTALL_LIBDIR})
else()
    message(STATUS "No lib/LUMlog.lib: LLVM's dlltool, which makes it, is not there")
endif()

configure_package_config_file(cmake/LUMlogConfig.cmake.in ${PROJECT_BINARY_DIR}/package/LUMlogConfig.cmake
                              INSTALL_DESTINATION ${package_dir}
                              PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_BINDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/LUMlogConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion ARCH_INDEPENDENT)
install(FILES ${PROJECT_BINARY_DIR}/package/LUMlogConfig.cmake
              ${PROJECT_BINARY_DIR}/package/LUMlogConfigVersion.cmake DESTINATION ${package_dir})
