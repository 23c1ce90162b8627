# What the scripts of this folder share.  Given to all: SOURCE (the project), WORK (a folder of the test's own), CXX,
# PKG_CONFIG, GENERATOR.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
    endif()
    set(run_output "${output}" PARENT_SCOPE)
endfunction()

function(expect condition text)
    separate_arguments(condition UNIX_COMMAND "${condition}")
    if(NOT (${condition}))
        message(FATAL_ERROR "${text}")
    endif()
endfunction()

# The flags that pkg-config tells for the package below `prefix`.
function(pkg_config_flags prefix result)
    file(GLOB_RECURSE package ${prefix}/*/tav_im_nbr.pc)
    get_filename_component(folder ${package} DIRECTORY)
    set(ENV{PKG_CONFIG_PATH} ${folder})
    run(${PKG_CONFIG} ${ARGN} --cflags --libs tav_im_nbr)
    string(STRIP "${run_output}" flags)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    set(${result} ${flags} PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(consumer ${SOURCE}/tests/install/consumer.cpp)
