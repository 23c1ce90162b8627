# Makes the headers of templates and compiles a program that uses them, without a warning; where clang-format is there, it
# has nothing to change.
# Usage: cmake -DTAV= -DCXX= -DSTANDARD= -DFLAGS= -DPROJECT= -DWORK= -P compile.cmake
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

# Every macro that is there where such a header is read, as a member of an enum, and texts that mean something else than
# they seem to.
execute_process(COMMAND ${CXX} -std=c++${STANDARD} -dM -E -x c++ -include tav/kit/message.h -include map -include vector
                        -I${PROJECT}/include /dev/null OUTPUT_VARIABLE macros RESULT_VARIABLE result)
string(REGEX MATCHALL "#define [A-Za-z][A-Za-z0-9_]*" macros "${macros}")
list(LENGTH macros count)
if(NOT result EQUAL 0 OR count LESS 100)
    message(FATAL_ERROR "${count} macros only")
endif()
set(members "")
foreach(macro ${macros})
    string(REPLACE "#define " "" macro ${macro})
    string(APPEND members " ${macro}(${count})")
    math(EXPR count "${count} + 1")
endforeach()
file(WRITE ${WORK}/names.pml "M:object(__class__(names.M)__code__(1)[1]e:enum{E}(${members})
[2]q:string(what??!{*a trick ??/*}))
K:object(__class__(tav.kit.message)[1]a:int32()) F:object(__class__(FILE)[1]a:int32())
T:object(__class__(time)[1]a:FILE()) S:object(__class__(stat)[1]a:time()) E:object(__class__(tavMsgExt)[1]a:stat())")

foreach(template ${PROJECT}/tests/tools/gen/world ${PROJECT}/docs/tool/chat-1 ${PROJECT}/docs/tool/chat-2 ${WORK}/names)
    get_filename_component(name ${template} NAME)
    execute_process(COMMAND ${TAV} gen cpp ${template}.pml -o ${WORK}/${name}.h RESULT_VARIABLE result
                    ERROR_VARIABLE told)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "tav gen cpp ${template}.pml ends with ${result}: ${told}")
    endif()
    file(READ ${WORK}/${name}.h text)
    string(REGEX MATCH "struct ([A-Za-z]+) : tav::kit::message" struct "${text}")
    string(REGEX MATCH "namespace ([a-z]+) {" space "${text}")
    string(REGEX REPLACE ".* ([a-z]+) {" "\\1" space "${space}")
    string(REGEX REPLACE "struct ([A-Za-z]+) .*" "\\1" struct "${struct}")
    file(WRITE ${WORK}/${name}.cpp "#include \"${name}.h\"\nint main() { return ${space}::${struct}().encode(true).empty() ? 1 : 0; }\n")
    execute_process(COMMAND ${CXX} -std=c++${STANDARD} -fsyntax-only ${FLAGS} -I${PROJECT}/include ${WORK}/${name}.cpp
                    RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "the header of ${template}.pml does not compile")
    endif()
    find_program(format clang-format-14)
    if(format)
        file(COPY ${PROJECT}/.clang-format DESTINATION ${WORK})
        execute_process(COMMAND ${format} --dry-run -Werror ${WORK}/${name}.h RESULT_VARIABLE result)
        if(NOT result EQUAL 0)
            message(FATAL_ERROR "the header of ${template}.pml is not formatted")
        endif()
    endif()
endforeach()
