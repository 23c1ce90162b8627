# Fails where the shared library has not the checks of the standard library that its build is to have, or has them where it
# is to be shipped.  NM, LIBRARY, EXPECTED: ON or OFF.
execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY} OUTPUT_VARIABLE wanted RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} reads nothing of ${LIBRARY}")
endif()
set(found OFF)
if(wanted MATCHES "__glibcxx_assert_fail")
    set(found ON)
endif()
if(NOT found STREQUAL EXPECTED)
    message(FATAL_ERROR "${LIBRARY}: assertions of the standard library are ${found}, and have to be ${EXPECTED}")
endif()
