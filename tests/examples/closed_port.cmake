# An example that finds nobody at the port says so on the standard error, and does not end well.  Given: PROGRAM, NAME,
# and SOURCE (the folder of the examples).
set(more)
if(NAME STREQUAL "logging")
    list(APPEND more ${CMAKE_CURRENT_BINARY_DIR}/closed_port.log)
elseif(NAME STREQUAL "template")
    list(APPEND more ${SOURCE}/template.pml)
elseif(NAME MATCHES "^proxy_")
    list(APPEND more 127.0.0.1 1)
endif()
# No authority: a file that can't be read would be told of ahead of the port.
execute_process(COMMAND ${PROGRAM} 127.0.0.1 1 "" ${more} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error
                TIMEOUT 60)
if(NOT result EQUAL 1)
    message(FATAL_ERROR "it ends with ${result}")
endif()
if(NOT error MATCHES "^${NAME}: ?[^\n]+")
    message(FATAL_ERROR "it does not say why, but \"${error}\"")
endif()
