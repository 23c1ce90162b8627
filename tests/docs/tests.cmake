# Every block of code in README.md and its like, docs/, docs/guide/ and docs/tool/ is compiled or run, and every link leads somewhere.
file(GLOB tav_pages CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/docs/*.md
     ${PROJECT_SOURCE_DIR}/docs/guide/*.md ${PROJECT_SOURCE_DIR}/docs/tool/*.md)
list(APPEND tav_pages README.md HACKING.md SECURITY.md CHANGELOG.md)
set(tav_docs_environment "CXX=${CMAKE_CXX_COMPILER}" "CC=${CMAKE_C_COMPILER}" "INCLUDE=-I${PROJECT_SOURCE_DIR}/include")
foreach(page ${tav_pages})
    string(REGEX REPLACE "^docs/" "" name ${page})
    string(REPLACE "/" "_" name ${name})
    add_test(NAME docs.blocks_of_${name}
             COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/check.sh quick ${PROJECT_SOURCE_DIR}
                     ${CMAKE_CURRENT_BINARY_DIR}/docs-work/${name} ${page})
    set_tests_properties(docs.blocks_of_${name} PROPERTIES ENVIRONMENT "${tav_docs_environment}")
endforeach()
add_test(NAME docs.commands_that_take_long CONFIGURATIONS long
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/check.sh long ${PROJECT_SOURCE_DIR}
                 ${CMAKE_CURRENT_BINARY_DIR}/docs-work/long ${tav_pages})
set_tests_properties(docs.commands_that_take_long PROPERTIES ENVIRONMENT "${tav_docs_environment}" LABELS long)

add_test(NAME docs.links_lead_somewhere
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/links.sh ${PROJECT_SOURCE_DIR} ${tav_pages})
add_test(NAME docs.changes_begin_with_this_version
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/versions.sh ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION})
add_test(NAME docs.links_that_lead_nowhere_fail
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/links_test.sh ${PROJECT_SOURCE_DIR}
                 ${CMAKE_CURRENT_BINARY_DIR}/docs-work/links ${tav_pages})

# Each behaviour of the worst gateway has its test, and each test its row.
add_test(NAME docs.worst_behaviours_have_their_tests
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/worst.sh ${PROJECT_SOURCE_DIR})
add_test(NAME docs.worst_behaviours_without_a_test_fail
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/worst_test.sh ${PROJECT_SOURCE_DIR}
                 ${CMAKE_CURRENT_BINARY_DIR}/docs-work/worst)

# Each line that can carry what a peer wrote stands in the page.
add_test(NAME docs.lines_with_what_a_peer_wrote_are_told
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/peer_lines.sh ${PROJECT_SOURCE_DIR})
add_test(NAME docs.lines_with_what_a_peer_wrote_that_are_not_told_fail
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/peer_lines_test.sh ${PROJECT_SOURCE_DIR}
                 ${CMAKE_CURRENT_BINARY_DIR}/docs-work/peer_lines)

# The checker itself: what it must refuse.
add_test(NAME docs.checker_refuses_what_nobody_checks
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/check_test.sh ${PROJECT_SOURCE_DIR}
                 ${CMAKE_CURRENT_BINARY_DIR}/docs-work/checker)
set_tests_properties(docs.checker_refuses_what_nobody_checks PROPERTIES ENVIRONMENT "${tav_docs_environment}")

# The reference: no comment is wrong, and no class goes without one.
tav_find_program(test doxygen TAV_DOXYGEN doxygen)
foreach(check clean classes wrong)
    add_test(NAME reference.${check}
             COMMAND ${CMAKE_COMMAND} -DCHECK=${check} -DDOXYGEN=${TAV_DOXYGEN} -DPROJECT_SOURCE_DIR=${PROJECT_SOURCE_DIR}
                     -DINPUT=${PROJECT_SOURCE_DIR}/include -DWORK=${CMAKE_CURRENT_BINARY_DIR}/reference-work/${check}
                     -P ${CMAKE_CURRENT_SOURCE_DIR}/docs/reference.cmake)
endforeach()

# What the pages show of the examples' output is what they print.
add_test(NAME docs.shown_output_is_printed
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/shown_output.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
set_tests_properties(docs.shown_output_is_printed PROPERTIES TIMEOUT 120)
add_test(NAME docs.tool_prints_what_its_pages_show
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/tool_pages.sh ${PROJECT_SOURCE_DIR} $<TARGET_FILE:tav>
                 ${CMAKE_CURRENT_BINARY_DIR}/docs-work/tool_pages)
