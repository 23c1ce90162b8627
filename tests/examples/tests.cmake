# The examples run as the demo runs them, each against a gateway of its own, and stay short.
foreach(example ${TAV_EXAMPLES})
    add_test(NAME examples.${example}_runs
             COMMAND ${PROJECT_SOURCE_DIR}/scripts/examples.sh ${PROJECT_BINARY_DIR} ${example})
    set_tests_properties(examples.${example}_runs PROPERTIES TIMEOUT 120)
endforeach()
add_test(NAME examples.chat_lets_three_users_talk
         COMMAND ${PROJECT_SOURCE_DIR}/scripts/chat.sh ${PROJECT_BINARY_DIR})
set_tests_properties(examples.chat_lets_three_users_talk PROPERTIES TIMEOUT 120)
add_test(NAME examples.have_at_most_60_lines
         COMMAND ${CMAKE_COMMAND} -DEXAMPLES=${PROJECT_SOURCE_DIR}/examples
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/examples/lines.cmake)

# What a user may well type at first.
add_test(NAME examples.first_tells_of_an_empty_host
         COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:first> -DHOST= -DPORT=1
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/examples/first_arguments.cmake)
add_test(NAME examples.first_tells_of_an_empty_port
         COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:first> -DHOST=127.0.0.1 -DPORT=
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/examples/first_arguments.cmake)

# Nobody at the port: each says why, and ends badly.
foreach(example ${TAV_EXAMPLES})
    if(NOT example MATCHES "^(encodings|py_first)$")
        add_test(NAME examples.${example}_tells_of_a_closed_port
                 COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:${example}> -DNAME=${example}
                         -DSOURCE=${PROJECT_SOURCE_DIR}/examples -P ${CMAKE_CURRENT_SOURCE_DIR}/examples/closed_port.cmake)
    endif()
endforeach()
