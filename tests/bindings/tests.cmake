# The C interface as its users meet it: by its header and its library, not by what is inside.
tav_find_package(test nlohmann-json3-dev nlohmann_json)
file(GLOB tav_binding_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*_test.cpp)
# Sanitizers have the allocator for themselves.
if(TAV_SANITIZE)
    list(FILTER tav_binding_tests EXCLUDE REGEX "_memory_test\\.cpp$")
endif()
foreach(source ${tav_binding_tests})
    get_filename_component(name ${source} NAME_WE)
    add_executable(${name} ${source})
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE tav_build_flags tav_gateway_core tav_im_json tav_im_nbr GTest::gtest
                                          GTest::gtest_main nlohmann_json::nlohmann_json)
    target_compile_options(${name} PRIVATE -O0)
    set_target_properties(${name} PROPERTIES TAV_UNOPTIMISED ON)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endforeach()

target_compile_definitions(json_break_test PRIVATE TAV_OPENSSL="${TAV_OPENSSL}")

# A program of C 99 and nothing more, by both compilers.
if(tav_other_tools)
    tav_find_program(test clang TAV_CLANG_C clang clang-14)
    foreach(compiler ${CMAKE_C_COMPILER} ${TAV_CLANG_C})
        get_filename_component(compiler_name ${compiler} NAME)
        add_test(NAME json_c.compiles_as_c99_${compiler_name}
                 COMMAND ${compiler} -std=c99 -Wall -Wextra -pedantic -Werror -fsyntax-only
                         -I${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_LIST_DIR}/program.c)
    endforeach()
endif()
add_executable(json_c_program bindings/program.c)
set_target_properties(json_c_program PROPERTIES C_STANDARD 99 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
target_link_libraries(json_c_program PRIVATE tav_build_flags tav_im_json)
add_test(NAME json_c.program_talks_to_the_gateway
         COMMAND ${CMAKE_CURRENT_LIST_DIR}/with_gateway.sh $<TARGET_FILE:tav-gateway> $<TARGET_FILE:json_c_program> HOST
                 PORT CA ${PROJECT_SOURCE_DIR}/examples/template.pml)

if(tav_other_tools)
    add_test(NAME symbols.five_functions_of_the_json_library
             COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DLIBRARY=$<TARGET_FILE:tav_im_json>
                     -P ${CMAKE_CURRENT_SOURCE_DIR}/symbols/five.cmake)
endif()
add_test(NAME library.json_is_never_unloaded
         COMMAND ${CMAKE_COMMAND} -DREADELF=${CMAKE_READELF} -DLIBRARY=$<TARGET_FILE:tav_im_json>
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/symbols/nodelete.cmake)

# The Python package, by the system's Python ahead of others.  Sanitizers have to be in a process from its start.
if(tav_other_tools)
    find_program(TAV_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
    tav_find_program(test python3 TAV_PYTHON python3)
    set(tav_python_folder ${PROJECT_SOURCE_DIR}/bindings/python)
    set(tav_python_environment PYTHONPATH=${tav_python_folder} PYTHONDONTWRITEBYTECODE=1
                               TAV_GATEWAY=$<TARGET_FILE:tav-gateway> TAV_PROXY=$<TARGET_FILE:tav-proxy>
                               TAV_IM_JSON_LIBRARY=$<TARGET_FILE:tav_im_json>)
    foreach(theme client async_client bot proxy)
        add_test(NAME python.${theme} COMMAND ${TAV_PYTHON} -W error -m unittest -v tests.test_${theme}
                 WORKING_DIRECTORY ${tav_python_folder})
        set_tests_properties(python.${theme} PROPERTIES ENVIRONMENT "${tav_python_environment}" TIMEOUT 120)
    endforeach()
    add_test(NAME python.page_shows_what_works
             COMMAND ${CMAKE_CURRENT_LIST_DIR}/with_gateway.sh $<TARGET_FILE:tav-gateway> ${TAV_PYTHON}
                     ${tav_python_folder}/tests/page.py HOST PORT CA)
    set_tests_properties(python.page_shows_what_works PROPERTIES ENVIRONMENT "${tav_python_environment}")
    tav_find_program(test mypy TAV_MYPY mypy)
    add_test(NAME python.is_typed
             COMMAND ${TAV_MYPY} --strict --python-version 3.9 --cache-dir ${CMAKE_CURRENT_BINARY_DIR}/mypy tav_im
                     tests/rig.py tests/test_client.py tests/test_async_client.py tests/test_bot.py tests/test_proxy.py examples/bot.py
                     ${PROJECT_SOURCE_DIR}/examples/py_first.py
                     make_wheel.py
             WORKING_DIRECTORY ${tav_python_folder})
    if(TAV_SHARED AND TAV_INSTALL)
        add_test(NAME python.wheel_is_made_installed_and_used
                 COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -DPYTHON=${TAV_PYTHON}
                         -DSOURCE=${tav_python_folder} -DWORK=${CMAKE_CURRENT_BINARY_DIR}/wheel-work
                         -DGATEWAY=$<TARGET_FILE:tav-gateway> -DVERSION=${PROJECT_VERSION} -DLIBDIR=${CMAKE_INSTALL_LIBDIR}
                         -P ${CMAKE_CURRENT_LIST_DIR}/wheel.cmake)
        set_tests_properties(python.wheel_is_made_installed_and_used PROPERTIES TIMEOUT 300)
    endif()
endif()
