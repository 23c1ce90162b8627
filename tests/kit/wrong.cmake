# A wrong declaration does not compile, and the compiler's first error says why.  Given: CXX, INCLUDE (the folder of
# the headers), SOURCE, whose first line ends in the text that the error has to hold.
file(STRINGS ${SOURCE} expected LIMIT_COUNT 1 REGEX "^// Must not compile: ")
string(REPLACE "// Must not compile: " "" expected "${expected}")
set(ENV{LC_ALL} C)
execute_process(COMMAND ${CXX} -std=c++17 -fsyntax-only -I${INCLUDE} ${SOURCE} RESULT_VARIABLE result
                OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(result EQUAL 0)
    message(FATAL_ERROR "it compiles")
endif()
string(REGEX MATCH "[^\n]* error: [^\n]*" first "${output}")
string(FIND "${first}" "${expected}" at)
if(expected STREQUAL "" OR at EQUAL -1)
    message(FATAL_ERROR "the first error does not say \"${expected}\":\n${output}")
endif()
