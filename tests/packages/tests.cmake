# The Debian packages, and the interface against the last version that is tagged: minutes, and programs of their own.
add_test(NAME packages.debian_install_upgrade_use_and_remove CONFIGURATIONS long
         COMMAND ${CMAKE_CURRENT_LIST_DIR}/debian.sh ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR}/packages-work)
add_test(NAME packages.interface_is_that_of_the_last_tag CONFIGURATIONS long COMMAND ${PROJECT_SOURCE_DIR}/scripts/abi.sh)
add_test(NAME packages.interface_that_changes_is_told CONFIGURATIONS long
         COMMAND ${CMAKE_CURRENT_LIST_DIR}/abi_test.sh ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR}/abi-work)
add_test(NAME packages.interface_is_held_from_a_tag_on CONFIGURATIONS long
         COMMAND ${CMAKE_CURRENT_LIST_DIR}/abi_tag_test.sh ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR}/abi-tag-work)
set_tests_properties(packages.debian_install_upgrade_use_and_remove packages.interface_is_that_of_the_last_tag
                     packages.interface_that_changes_is_told packages.interface_is_held_from_a_tag_on PROPERTIES LABELS long RUN_SERIAL ON TIMEOUT 3600)
add_test(NAME packages.have_the_version_of_the_headers
         COMMAND ${CMAKE_CURRENT_LIST_DIR}/version.sh ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION}
                 $<TARGET_FILE:tav> $<TARGET_FILE:tav-gateway>)
