# The checks of clang-tidy for which an ordinary run has no time.
add_test(NAME lint.all_checks CONFIGURATIONS long COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint.sh all)
set_tests_properties(lint.all_checks PROPERTIES LABELS long RUN_SERIAL ON TIMEOUT 7200)

# The library on other systems and machines and with other tools: scripts/places.sh, which fetches what it needs.
set(tav_places aarch64 i686 gcc10 libcxx cmake318 debian11 debian12 debian13)
foreach(place ${tav_places})
    add_test(NAME places.${place} CONFIGURATIONS long COMMAND ${PROJECT_SOURCE_DIR}/scripts/places.sh ${place})
    # One after the other: they share what they have fetched, and each takes all processors.
    set_tests_properties(places.${place} PROPERTIES LABELS long RUN_SERIAL ON TIMEOUT 14400)
endforeach()
