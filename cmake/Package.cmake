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
install(TARGETS LUMlogEvents LIBRARY DESTINATION ${CMAKE_INSTALL_BINDIR})
if(LUMLOG_TOOLS)
    install(TARGETS LevelSync LUMlogWatch lumlog-admin RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(LUMLOG_SYMBOLS)
    set(symbols $<TARGET_FILE:LUMlog>.debug)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        set(symbols $<TARGET_FILE_DIR:LUMlog>/LUMlog.pdb)
    endif()
    install(FILES ${symbols} DESTINATION ${CMAKE_INSTALL_LIBDIR}/debug)
endif()
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lumlog)
# The class with nothing but the native methods, as a source; lumlog.jar beside it is installed by java/CMakeLists.txt.
install(DIRECTORY java/lumaris DESTINATION ${CMAKE_INSTALL_DATADIR}/lumlog/java)
# Scripts for any machine that has Python, which is seldom the one that the logs are from.
install(PROGRAMS tools/crashes2html tools/perf2trace tools/report2html tools/report2json tools/stacks
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lumlog/tools)
install(
    DIRECTORY tools/lumlog_tools
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lumlog/tools
    FILES_MATCHING
    PATTERN "*.py"
    PATTERN __pycache__ EXCLUDE)
# For programs that collect logs.
install(DIRECTORY packaging/shipping/ DESTINATION ${CMAKE_INSTALL_DATADIR}/lumlog/shipping)
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumlog)
# Without docs/decisions, which are for who works on the sources.
install(
    DIRECTORY docs/
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumlog/docs
    FILES_MATCHING
    PATTERN "*.md"
    PATTERN "*.png"
    PATTERN "*.svg"
    PATTERN decisions EXCLUDE)
# Which the pages point to. Some are projects of their own, and the others are built by the sources of this tree alone.
install(
    DIRECTORY examples/
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/lumlog/examples
    REGEX "/examples/CMakeLists\\.txt$" EXCLUDE
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
              ${PROJECT_BINARY_DIR}/package/LUMlogConfigVersion.cmake cmake/LUMlogEventMessages.cmake
              cmake/LUMlogSymbols.cmake
        DESTINATION ${package_dir})

# The packages: CPack installs into a folder of its own, of which packaging/external.cmake makes them (scripts/package.sh).
set(CPACK_GENERATOR External)
set(CPACK_EXTERNAL_ENABLE_STAGING ON)
set(CPACK_EXTERNAL_PACKAGE_SCRIPT ${PROJECT_SOURCE_DIR}/packaging/external.cmake)
set(CPACK_PACKAGE_NAME LUMlog)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/cpack)
set(CPACK_LUMLOG_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_LUMLOG_BUILD ${PROJECT_BINARY_DIR})
set(CPACK_LUMLOG_OUT ${PROJECT_BINARY_DIR}/packages)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
