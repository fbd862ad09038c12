# cmake -D BUILD_DIR=... -D WORK_DIR=... -P run.cmake
# Builds projects against the installed package and runs their programs: the consumer, and the examples
# that are projects of their own.

function(step)
    execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed with ${result}")
    endif()
endfunction()

set(prefix ${WORK_DIR}/installed)
# What an earlier run installed could hide a file that is no longer installed.
file(REMOVE_RECURSE ${WORK_DIR})
step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# build_and_run(NAME SOURCE_DIR): leaves what the program prints in `printed`. Its log folder is "log".
function(build_and_run name source_dir)
    set(build ${WORK_DIR}/${name})
    step(
        ${CMAKE_COMMAND} -S ${source_dir} -B ${build} -G Ninja --toolchain ${TOOLCHAIN_FILE}
        -D CMAKE_BUILD_TYPE=${BUILD_TYPE} -D CMAKE_PREFIX_PATH=${prefix} -D WANTED_VERSION=${VERSION})
    step(${CMAKE_COMMAND} --build ${build})
    # Windows looks for DLLs beside the program first.
    file(COPY ${prefix}/bin/LUMlog.dll DESTINATION ${build})
    # Output 2: the private file.
    file(WRITE ${build}/log/logger "2\nfile_size_limit_in_mb=0\n")
    # Off the block that other tests share; the emulator keeps such variables from what it starts.
    execute_process(
        COMMAND ${EMULATOR} cmd.exe /c "set KORAL_LOG_DEVELOP=1&& ${name}.exe"
        WORKING_DIRECTORY ${build}
        TIMEOUT 60
        OUTPUT_VARIABLE printed
        ECHO_OUTPUT_VARIABLE
        RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${name} ended with ${result}")
    endif()
    set(printed "${printed}" PARENT_SCOPE)
endfunction()

function(expect name text pattern)
    if(NOT text MATCHES "${pattern}")
        message(FATAL_ERROR "${name}: [${pattern}] is not in\n${text}")
    endif()
endfunction()

file(WRITE ${WORK_DIR}/consumer/state.xml
     "<lumariscontext><stats><statentry type='Album' count='3'/></stats></lumariscontext>")
build_and_run(consumer ${CONSUMER_DIR})
# Its symbols are in a file of their own, which it names, and say where its function is.
file(SIZE ${WORK_DIR}/consumer/consumer.exe size)
file(SIZE ${WORK_DIR}/consumer/consumer.exe.debug size_of_symbols)
if(NOT size LESS size_of_symbols)
    message(FATAL_ERROR "consumer.exe has ${size} bytes, and its symbols ${size_of_symbols}")
endif()
file(STRINGS ${WORK_DIR}/consumer/consumer.exe link REGEX "consumer\\.exe\\.debug")
expect(symbols "${link}" "consumer\\.exe\\.debug")
execute_process(COMMAND ${NM} -l ${WORK_DIR}/consumer/consumer.exe.debug OUTPUT_VARIABLE places)
expect(symbols "${places}" " main\t[^\n]*main\\.cpp:[0-9]+")
expect(consumer "${printed}" "linked with LUMlog; a package has 10000 message codes")
expect(consumer "${printed}" "<statentry type='Album' count='3'>")

# A PDB is installed, and the DLL names it wherever it lies.
if(WITH_PDB)
    file(STRINGS ${prefix}/lib/debug/LUMlog.pdb magic LIMIT_COUNT 1)
    expect(PDB "${magic}" "^Microsoft C/C\\+\\+ MSF 7\\.00")
    file(STRINGS ${prefix}/bin/LUMlog.dll link REGEX "LUMlog\\.pdb")
    expect("the DLL's PDB" ";${link};" ";[^/\\\\]*LUMlog\\.pdb;")
endif()

# expect_refusal(NAME SENTENCE LINE...): a project that begins with these lines does not find the package, and is told why.
function(expect_refusal name sentence)
    set(source ${WORK_DIR}/${name})
    string(JOIN "\n" lines "cmake_minimum_required(VERSION 3.20)" "project(refused LANGUAGES NONE)" ${ARGN})
    file(WRITE ${source}/CMakeLists.txt "${lines}\n")
    execute_process(
        COMMAND ${CMAKE_COMMAND} -S ${source} -B ${source}/build -D CMAKE_PREFIX_PATH=${prefix}
        OUTPUT_VARIABLE printed
        ERROR_VARIABLE printed
        RESULT_VARIABLE result)
    string(REGEX REPLACE "[ \n]+" " " printed "${printed}") # CMake breaks its lines where it likes
    if(result EQUAL 0)
        message(FATAL_ERROR "${name}: found what cannot be linked\n${printed}")
    endif()
    expect(${name} "${printed}" "${sentence}")
endfunction()

set(find "find_package(LUMlog ${VERSION} CONFIG REQUIRED)")
expect_refusal(linux "x86-64 processors, and this compiler makes programs for Linux\\." "set(CMAKE_SYSTEM_NAME Linux)"
               "unset(WIN32)" "${find}")
expect_refusal(bits "x86-64 processors, and this compiler makes 32-bit programs\\." "set(WIN32 TRUE)"
               "set(CMAKE_SIZEOF_VOID_P 4)" "${find}")
expect_refusal(arm "x86-64 processors, and this compiler makes programs for ARM processors\\." "set(WIN32 TRUE)"
               "set(CMAKE_SIZEOF_VOID_P 8)" "set(CMAKE_CXX_COMPILER_ARCHITECTURE_ID ARM64)" "${find}")
expect_refusal(classes "LUMlog::LUMlog, with the exported classes, needs MinGW-w64" "set(WIN32 TRUE)"
               "set(CMAKE_SIZEOF_VOID_P 8)" "set(MSVC TRUE)"
               "find_package(LUMlog ${VERSION} CONFIG REQUIRED COMPONENTS LUMlog)")

# run_tool(PROGRAM ARGUMENT...): a script on this machine; leaves its status and what it said in `status` and `printed`.
function(run_tool)
    execute_process(COMMAND ${ARGN} TIMEOUT 60 OUTPUT_VARIABLE printed ERROR_VARIABLE printed RESULT_VARIABLE status)
    set(status ${status} PARENT_SCOPE)
    set(printed "${printed}" PARENT_SCOPE)
endfunction()

# The tools work where they are installed and through a link to there; alone they say what they lack.
set(tools ${prefix}/share/lumlog/tools)
file(WRITE ${WORK_DIR}/4_P20260731_081500 "1785485700000,Album,Open,12.5,,\n")
file(WRITE ${WORK_DIR}/state.xml "<lumariscontext><stats/></lumariscontext>")
set(perf2trace_call ${WORK_DIR}/4_P20260731_081500)
set(perf2trace_result "\"name\":\"Album/Open\"")
set(report2html_call ${WORK_DIR}/state.xml -o -)
set(report2html_result "<h1>State file, no exception</h1>")
set(report2json_call ${WORK_DIR}/state.xml)
set(report2json_result "\"kind\":\"state file\"")
file(WRITE ${WORK_DIR}/crashes.jsonl "{\"kind\":\"state file\"}\n")
set(crashes2html_call ${WORK_DIR}/crashes.jsonl -o -)
set(crashes2html_result "<h1>No crashes</h1>")
file(WRITE ${WORK_DIR}/core.dmp "MDMP")
set(stacks_call ${WORK_DIR}/core.dmp)
set(stacks_result "this is no minidump")
set(perf2trace_status 0)
set(report2html_status 0)
set(report2json_status 0)
set(crashes2html_status 0)
set(stacks_status 1) # what it takes would need LLDB
foreach(tool crashes2html perf2trace report2html report2json stacks)
    file(MAKE_DIRECTORY ${WORK_DIR}/links)
    file(CREATE_LINK ${tools}/${tool} ${WORK_DIR}/links/${tool} SYMBOLIC)
    foreach(program ${tools}/${tool} ${WORK_DIR}/links/${tool})
        run_tool(${program} ${${tool}_call})
        expect(${program} "${status}" "^${${tool}_status}$")
        expect(${program} "${printed}" "${${tool}_result}")
    endforeach()
    file(COPY ${tools}/${tool} DESTINATION ${WORK_DIR}/alone)
    run_tool(${WORK_DIR}/alone/${tool} ${${tool}_call})
    expect("${tool} alone" "${status}: ${printed}" "^1: ${tool}: the folder lumlog_tools has to stand beside this program")
endforeach()

build_and_run(first ${EXAMPLES_DIR}/first)
file(READ ${WORK_DIR}/first/log/viewer.log log)
expect(first "${log}" " WARNING \\(310\\) viewer .* -> only 12 of 17 images fit into memory")

build_and_run(tool ${EXAMPLES_DIR}/tool)
file(READ ${WORK_DIR}/tool/log/tool.log log)
expect(tool "${log}" " WARNING \\(310\\) tool .*  tool\\.c\\([0-9]+\\) main -> 12 of 17 images fit into memory")

build_and_run(destination ${EXAMPLES_DIR}/destination)
set(headline "[0-9:. +-]+ ERROR   \\(310\\) destination .*  destination\\.cpp\\([0-9]+\\) main ->")
expect(destination "${printed}" "level 3, package 310: cannot read front\\.png\r?\n    headline: ${headline}\r?\n")
if(printed MATCHES "trying the archive")
    message(FATAL_ERROR "the destination kept what it was not to keep")
endif()
file(READ ${WORK_DIR}/destination/copy.log log)
expect(destination "${log}" "${headline} cannot read front\\.png.* -> trying the archive instead")
