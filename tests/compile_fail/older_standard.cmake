# Each of HEADERS, below INCLUDE, refuses to be compiled as C++14: each of COMPILERS reports one error and ends.
foreach(compiler ${COMPILERS})
    foreach(header ${HEADERS})
        execute_process(COMMAND ${compiler} -std=c++14 -fsyntax-only -I${INCLUDE} -include ${header} -x c++ /dev/null
                        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
        string(REGEX MATCHALL "error:[^\n]*" errors "${output}")
        list(LENGTH errors count)
        if(result EQUAL 0 OR NOT count EQUAL 1 OR NOT errors MATCHES "tav_im_nbr needs C\\+\\+17")
            message(FATAL_ERROR "${compiler} with ${header}:\n${output}")
        endif()
    endforeach()
endforeach()
