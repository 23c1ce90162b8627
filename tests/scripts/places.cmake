# The library for other machines and with the oldest tools: scripts/places.sh, which fetches what it needs.
set(tav_places aarch64 i686 gcc10 libcxx cmake318)
foreach(place ${tav_places})
    add_test(NAME places.${place} CONFIGURATIONS long COMMAND ${PROJECT_SOURCE_DIR}/scripts/places.sh ${place})
    # One after the other: they share what they have fetched, and each takes all processors.
    set_tests_properties(places.${place} PROPERTIES LABELS long RUN_SERIAL ON)
endforeach()
