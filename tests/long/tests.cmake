# Servers that only the long tests need: the test installs them, or says what to ask for.
add_executable(client_policy_servers_test long/client_policy_servers_test.cpp)
tav_test_target(client_policy_servers_test)
target_link_libraries(client_policy_servers_test PRIVATE tav_test_limit)
add_test(NAME long.policy_against_other_servers CONFIGURATIONS long
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/long/with_packages.sh ${PROJECT_SOURCE_DIR}
                 $<TARGET_FILE:client_policy_servers_test>)
set_tests_properties(long.policy_against_other_servers PROPERTIES LABELS long TIMEOUT 600)

# What the ordinary run does until some sends were refused.
if(TARGET limits_memory_test)
    add_test(NAME long.gateway_that_reads_nothing_for_a_minute CONFIGURATIONS long
             COMMAND limits_memory_test --gtest_filter=LimitsMemory.GatewayThatStopsReading*)
    set_tests_properties(long.gateway_that_reads_nothing_for_a_minute
                         PROPERTIES LABELS long TIMEOUT 300 ENVIRONMENT TAV_TEST_STALL_S=60)
endif()

# What the counters cost is measured as they are shipped: optimised.
if(NOT TAV_SANITIZE)
    add_executable(counters_cost_test long/counters_cost_test.cpp)
    tav_test_target(counters_cost_test)
    target_link_libraries(counters_cost_test PRIVATE tav_test_limit)
    set_source_files_properties(long/counters_cost_test.cpp PROPERTIES COMPILE_OPTIONS -O2)
    add_test(NAME long.counters_cost_less_than_a_hundredth CONFIGURATIONS long COMMAND counters_cost_test)
    set_tests_properties(long.counters_cost_less_than_a_hundredth
                         PROPERTIES LABELS long TIMEOUT 120 RUN_SERIAL ON)
endif()

# What needs a network of its own, and threads in a forked child.
if(NOT TAV_SANITIZE)
    add_executable(client_keep_alive_test long/client_keep_alive_test.cpp)
    tav_test_target(client_keep_alive_test)
    target_link_libraries(client_keep_alive_test PRIVATE tav_test_limit)
    add_test(NAME long.keep_alive_ends_a_connection CONFIGURATIONS long COMMAND client_keep_alive_test)
    set_tests_properties(long.keep_alive_ends_a_connection PROPERTIES LABELS long TIMEOUT 60)
endif()
