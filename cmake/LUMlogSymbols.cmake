# lumlog_split_symbols(TARGET)
#
# Takes the symbols out of a program or a DLL once it is linked, into FILE.debug beside it, as LUMlog.dll and its own have
# been: what is shipped stays small, and what a crash left can be read where the other file is kept. The file names that one
# and its checksum (a debug link), by which GDB finds it in the same folder or in .debug below it. LLDB is told of it:
# target symbols add FILE.debug.
#
# Compile with -gdwarf-4, as LLDB 14 finds no names of sources in later forms, and do not link with -s. Needs objcopy, which
# comes with MinGW-w64. With Microsoft's linker, which keeps symbols in a PDB anyway, nothing is done.

function(lumlog_split_symbols target)
    if(MSVC)
        return()
    endif()
    if(NOT CMAKE_OBJCOPY)
        message(FATAL_ERROR "lumlog_split_symbols needs objcopy: set CMAKE_OBJCOPY")
    endif()
    get_target_property(type ${target} TYPE)
    if(NOT type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY)$")
        message(FATAL_ERROR "lumlog_split_symbols is for programs and DLLs, and ${target} is neither")
    endif()
    # With the time of the symbols and the DLL left out, as otherwise the same sources would not make the same bytes.
    set(objcopy ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0 ${CMAKE_OBJCOPY})
    add_custom_command(
        TARGET ${target}
        POST_BUILD
        COMMAND ${objcopy} --only-keep-debug $<TARGET_FILE_NAME:${target}> $<TARGET_FILE_NAME:${target}>.debug
        COMMAND ${objcopy} --strip-all --add-gnu-debuglink=$<TARGET_FILE_NAME:${target}>.debug
                $<TARGET_FILE_NAME:${target}>
        WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
        COMMENT "Taking the symbols out of ${target}"
        VERBATIM)
endfunction()
