# Installs the built project into an empty prefix, and builds and runs a consumer of it, by the CMake package and
# by pkg-config.  Given: BUILD (the project's build folder), SOURCE (this folder), WORK, CXX, GENERATOR, LIBDIR.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)

run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/package -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_PREFIX_PATH=${WORK}/prefix)
run(${CMAKE_COMMAND} --build ${WORK}/package)
run(${WORK}/package/consumer)

set(ENV{PKG_CONFIG_PATH} ${WORK}/prefix/${LIBDIR}/pkgconfig)
execute_process(COMMAND pkg-config --cflags --libs tav_im_nbr RESULT_VARIABLE result OUTPUT_VARIABLE flags
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "pkg-config does not find the library")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${SOURCE}/consumer.cpp ${flags} -Wl,-rpath,${WORK}/prefix/${LIBDIR} -o ${WORK}/by-pkg-config)
run(${WORK}/by-pkg-config)
