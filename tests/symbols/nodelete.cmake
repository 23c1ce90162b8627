# The shared library LIBRARY says of itself that it can't be unloaded.
execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
if(NOT dynamic MATCHES "FLAGS_1[^\n]*NODELETE")
    message(FATAL_ERROR "${LIBRARY} is not marked NODELETE")
endif()
