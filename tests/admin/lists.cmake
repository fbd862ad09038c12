# cmake -D SCRIPT=... -D WORK=... -P lists.cmake: lists of messages that are refused.
function(expect_refused list sentence)
    file(WRITE ${WORK}/list.txt "${list}")
    execute_process(
        COMMAND ${CMAKE_COMMAND} -D LIST=${WORK}/list.txt -D OUTPUT=${WORK}/list.mc -P ${SCRIPT}
        RESULT_VARIABLE result
        OUTPUT_QUIET
        ERROR_VARIABLE error)
    string(REGEX REPLACE "[ \n]+" " " error "${error}")
    if(result EQUAL 0 OR NOT error MATCHES "${sentence}")
        message(FATAL_ERROR "not refused with [${sentence}]: ${list}\n${result}: ${error}")
    endif()
endfunction()

expect_refused("# only a comment\n" "there is no code in it")
expect_refused("12 a\n13 b\n12 c\n" "12 stands there twice")
expect_refused("10-20\n20 c\n" "20 stands there twice")
expect_refused("7500000 a\n" "codes are 0 to 7499999, the smaller one first: 7500000 a")
expect_refused("99999999999999999999 a\n" "codes are 0 to 7499999")
expect_refused("20-10 a\n" "the smaller one first: 20-10 a")
expect_refused("album 12\n" "begins with a code, or with two and a hyphen between them: album 12")
expect_refused("-5 a\n" "begins with a code")
expect_refused("12a\n" "begins with a code")
expect_refused("12 .\n" "a text of a dot alone cannot be shown: 12 .")
