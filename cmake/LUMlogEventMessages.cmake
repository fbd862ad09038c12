# lumlog_event_messages(NAME LIST)
#
# Adds NAME.dll, which holds the texts that the event viewer shows for the message codes of a suite. LIST is a text file in
# UTF-8 with one code, or one range of codes, a line, and optionally what to show:
#
#     # comment
#     3100012            The album cannot be opened: %1
#     3100013
#     3200000-3200099
#
# %1 stands for the message that the program has written; with the library's own code 65535, %1 is the headline and %2 the
# message. Without a text the message is shown alone. Any other % stands for itself.
# An administrator names the DLL in `lumlog-admin register --messages`.
#
# Needs windmc of binutils, which comes with MinGW-w64.

# The same file as a script, while a project is built: cmake -D LIST=... -D OUTPUT=... -P LUMlogEventMessages.cmake
if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    cmake_policy(VERSION 3.25)

    set(largest 7499999) # package 749
    file(READ ${LIST} lines)
    # What means something in a list of CMake's comes back at the end.
    string(ASCII 1 semicolon)
    string(ASCII 2 opening)
    string(ASCII 3 closing)
    string(ASCII 4 backslash)
    string(ASCII 5 insert)
    string(REPLACE "\r" "" lines "${lines}")
    string(REPLACE "\\" "${backslash}" lines "${lines}")
    string(REPLACE ";" "${semicolon}" lines "${lines}")
    string(REPLACE "[" "${opening}" lines "${lines}")
    string(REPLACE "]" "${closing}" lines "${lines}")
    string(REPLACE "\n" ";" lines "${lines}")

    set(messages "")
    set(facilities "")
    foreach(line IN LISTS lines)
        if(line MATCHES "^[ \t]*(#|$)")
            continue()
        endif()
        if(NOT line MATCHES "^[ \t]*([0-9]+)(-([0-9]+))?([ \t]+(.*))?$")
            message(FATAL_ERROR "${LIST}: a line begins with a code, or with two and a hyphen between them: ${line}")
        endif()
        set(first "${CMAKE_MATCH_1}")
        set(last "${CMAKE_MATCH_3}")
        string(STRIP "${CMAKE_MATCH_5}" text)
        if("${last}" STREQUAL "")
            set(last ${first})
        endif()
        string(LENGTH "${last}" digits)
        if(digits GREATER 7 OR last GREATER largest OR first GREATER last)
            message(FATAL_ERROR "${LIST}: codes are 0 to ${largest}, the smaller one first: ${line}")
        endif()
        if("${text}" STREQUAL ".")
            message(FATAL_ERROR "${LIST}: a text of a dot alone cannot be shown: ${line}")
        endif()
        if("${text}" STREQUAL "")
            set(text "%1")
        endif()
        string(REPLACE "%1" "${insert}1" text "${text}")
        if(first EQUAL 65535) # the one with two strings
            string(REPLACE "%2" "${insert}2" text "${text}")
        endif()
        string(REPLACE "%" "%%" text "${text}")
        string(REPLACE "${insert}" "%" text "${text}")
        foreach(code RANGE ${first} ${last})
            if(DEFINED seen_${code})
                message(FATAL_ERROR "${LIST}: ${code} stands there twice")
            endif()
            set(seen_${code} TRUE)
            # The parts that a message compiler makes a code of.
            math(EXPR facility "${code} >> 16")
            math(EXPR id "${code} & 0xFFFF")
            list(APPEND facilities ${facility})
            string(APPEND messages "MessageId=${id}\nSeverity=Success\nFacility=F${facility}\n"
                                   "SymbolicName=MESSAGE_${code}\nLanguage=English\n${text}\n.\n\n")
        endforeach()
    endforeach()
    if("${messages}" STREQUAL "")
        message(FATAL_ERROR "${LIST}: there is no code in it")
    endif()
    list(REMOVE_DUPLICATES facilities)
    set(names "")
    foreach(facility IN LISTS facilities)
        string(APPEND names "F${facility}=${facility}\n")
    endforeach()
    string(REPLACE "${backslash}" "\\" messages "${messages}")
    string(REPLACE "${semicolon}" ";" messages "${messages}")
    string(REPLACE "${opening}" "[" messages "${messages}")
    string(REPLACE "${closing}" "]" messages "${messages}")
    file(WRITE ${OUTPUT} "MessageIdTypedef=DWORD\nSeverityNames=(Success=0x0)\nFacilityNames=(${names})\n"
                         "LanguageNames=(English=0x409:MSG00409)\n\n${messages}")
    return()
endif()

set(LUMLOG_EVENT_MESSAGES_SCRIPT ${CMAKE_CURRENT_LIST_FILE})

function(lumlog_event_messages name list)
    if(NOT CMAKE_RC_COMPILER)
        message(FATAL_ERROR "lumlog_event_messages needs a resource compiler: enable_language(RC)")
    endif()
    # Beside the resource compiler, and named as it is.
    get_filename_component(directory ${CMAKE_RC_COMPILER} DIRECTORY)
    get_filename_component(compiler ${CMAKE_RC_COMPILER} NAME)
    string(REPLACE "windres" "windmc" compiler ${compiler})
    find_program(LUMLOG_WINDMC NAMES ${compiler} x86_64-w64-mingw32-windmc windmc HINTS ${directory})
    if(NOT LUMLOG_WINDMC)
        message(FATAL_ERROR "lumlog_event_messages needs windmc of binutils")
    endif()

    get_filename_component(list ${list} ABSOLUTE)
    set(work ${CMAKE_CURRENT_BINARY_DIR}/${name}.messages)
    # The resource names the other file without its folder.
    add_custom_command(
        OUTPUT ${work}/${name}.rc ${work}/MSG00409.bin
        COMMAND ${CMAKE_COMMAND} -D LIST=${list} -D OUTPUT=${work}/${name}.mc -P ${LUMLOG_EVENT_MESSAGES_SCRIPT}
        COMMAND ${LUMLOG_WINDMC} -C 65001 -U -r ${work} -h ${work} ${work}/${name}.mc
        DEPENDS ${list} ${LUMLOG_EVENT_MESSAGES_SCRIPT}
        COMMENT "Compiling the event messages of ${name}"
        VERBATIM)
    # Windows loads it for its resources alone; linkers want a place where a DLL begins.
    string(CONCAT begin "int __stdcall DllMainCRTStartup(void* module, unsigned long reason, void* reserved)\n"
                  "{\n    (void)module, (void)reason, (void)reserved;\n    return 1;\n}\n")
    if(CMAKE_C_COMPILER)
        set(source ${work}/begin.c)
        file(CONFIGURE OUTPUT ${source} CONTENT "${begin}")
    else()
        set(source ${work}/begin.cpp)
        file(CONFIGURE OUTPUT ${source} CONTENT "extern \"C\" ${begin}")
    endif()
    add_library(${name} MODULE ${source} ${work}/${name}.rc)
    set_source_files_properties(${work}/${name}.rc PROPERTIES OBJECT_DEPENDS ${work}/MSG00409.bin)
    target_include_directories(${name} PRIVATE ${work})
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX .dll LIBRARY_OUTPUT_DIRECTORY
                                                                   "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
    if(MSVC)
        target_link_options(${name} PRIVATE /ENTRY:DllMainCRTStartup /NODEFAULTLIB)
    else()
        # Without the time, so that the same list makes the same file.
        target_link_options(${name} PRIVATE -nostdlib -s -Wl,--no-insert-timestamp)
    endif()
endfunction()
