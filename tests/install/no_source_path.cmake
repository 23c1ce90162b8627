# Nothing in the library LIBRARY tells of SOURCE, where it was built.
file(STRINGS ${LIBRARY} texts)
string(FIND "${texts}" "${SOURCE}/" at)
if(NOT at EQUAL -1)
    string(SUBSTRING "${texts}" ${at} 200 found)
    message(FATAL_ERROR "the library holds a path of its sources: ${found}")
endif()
