# The library LIBRARY exports its five functions and nothing else.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "[0-9a-f]+ ([A-Za-z]) ([^\n]*)\n" "\\1 \\2;" exported "${output}")
list(SORT exported)
list(REMOVE_ITEM exported "")
set(expected "T tav_json_create" "T tav_json_destroy" "T tav_json_execute" "T tav_json_receive" "T tav_json_send")
if(NOT exported STREQUAL expected)
    message(FATAL_ERROR "exported: ${exported}")
endif()
