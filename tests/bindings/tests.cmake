# The C interface as its users meet it: by its header and its library, not by what is inside.
tav_find_package(test nlohmann-json3-dev nlohmann_json)
file(GLOB tav_binding_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*_test.cpp)
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
