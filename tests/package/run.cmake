# cmake -D BUILD_DIR=... -D WORK_DIR=... -P run.cmake
# Builds the consumer against the installed package and runs it.

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
step(
    ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -G Ninja --toolchain ${TOOLCHAIN_FILE}
    -D CMAKE_BUILD_TYPE=${BUILD_TYPE} -D CMAKE_PREFIX_PATH=${prefix} -D WANTED_VERSION=${VERSION})
step(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
# Windows looks for DLLs beside the program first.
file(COPY ${prefix}/bin/LUMlog.dll DESTINATION ${WORK_DIR}/build)
step(${EMULATOR} ${WORK_DIR}/build/consumer.exe)
