# clang must refuse SOURCE once the lines that take its locks are gone: so it would refuse a line that forgot one.
# CLANG, FLAGS, SOURCE, WORK: where the changed source is put.
file(READ ${SOURCE} text)
string(REGEX REPLACE "\n *(tav::|detail::)*(Guard|Lock) const [a-zA-Z]+\\([^\n]*\\);" "" without "${text}")
if(without STREQUAL text)
    message(FATAL_ERROR "${SOURCE} takes no lock")
endif()
get_filename_component(name ${SOURCE} NAME)
file(WRITE ${WORK}/${name} "${without}")
execute_process(COMMAND ${CLANG} ${FLAGS} -fsyntax-only ${WORK}/${name} RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(result EQUAL 0 OR NOT said MATCHES "error: [a-z]+ variable '[a-z_A-Z]+' requires holding mutex")
    message(FATAL_ERROR "${SOURCE} without its locks is taken (${result}):\n${said}")
endif()
