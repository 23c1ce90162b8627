# Counts which lines and branches of the project's own code run: docs/testing.md.  Nothing is optimised, so that a line
# is a line and a branch one that the source has; tests are not counted, and are compiled as ever.
option(TAV_COVERAGE "Count which lines and branches of the project's own code run; see docs/testing.md" OFF)
mark_as_advanced(TAV_COVERAGE)
option(TAV_MUTANTS "Link the tests with a library that scripts/mutate.sh puts others in the place of" OFF)
mark_as_advanced(TAV_MUTANTS)

function(tav_count_coverage target)
    if(TAV_COVERAGE)
        # Threads count at once.
        target_compile_options(${target} PRIVATE -O0 --coverage -fprofile-update=atomic)
    endif()
endfunction()
if(TAV_COVERAGE)
    add_link_options(--coverage)
endif()
