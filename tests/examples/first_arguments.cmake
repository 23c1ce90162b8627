# The first example, PROGRAM, with HOST and PORT of which one is empty: a message and the exit code of wrong use.
execute_process(COMMAND ${PROGRAM} "${HOST}" "${PORT}" none RESULT_VARIABLE result OUTPUT_VARIABLE output
                ERROR_VARIABLE error TIMEOUT 10)
if(NOT result EQUAL 2 OR NOT error MATCHES "host or the port is empty")
    message(FATAL_ERROR "ended with ${result}: ${output}${error}")
endif()
