# The build stamp: the time from SOURCE_DATE_EPOCH, else that of the commit, and the commit's first eight
# digits.  It is taken when the project is configured, so a commit alone rebuilds nothing.
# Sources without a history, as a tarball has them, name their version and the time at which they were packed.
set(TAV_BUILD_TIME "$ENV{SOURCE_DATE_EPOCH}")
set(TAV_BUILD_REVISION "")

find_package(Git QUIET)
if(Git_FOUND AND EXISTS "${PROJECT_SOURCE_DIR}/.git")
    execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --short=8 HEAD
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                    OUTPUT_VARIABLE TAV_BUILD_REVISION OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    string(SUBSTRING "${TAV_BUILD_REVISION}" 0 8 TAV_BUILD_REVISION)
    if(NOT TAV_BUILD_TIME)
        execute_process(COMMAND ${GIT_EXECUTABLE} log -1 --format=%ct
                        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                        OUTPUT_VARIABLE TAV_BUILD_TIME OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    endif()
endif()
if(NOT TAV_BUILD_TIME MATCHES "^[0-9]+$")
    file(TIMESTAMP ${PROJECT_SOURCE_DIR}/CMakeLists.txt TAV_BUILD_TIME "%s" UTC)
endif()
if(NOT TAV_BUILD_REVISION MATCHES "^[0-9a-f]+$")
    set(TAV_BUILD_REVISION v${PROJECT_VERSION})
endif()
string(REPLACE "." "_" TAV_BUILD_REVISION_NAME "${TAV_BUILD_REVISION}")

# The build's date and time in the forms "Jun  1 2022" and "11:09:29", in UTC, so that a build repeats exactly.
set(saved_epoch "$ENV{SOURCE_DATE_EPOCH}")
set(ENV{SOURCE_DATE_EPOCH} ${TAV_BUILD_TIME})
string(TIMESTAMP TAV_BUILD_MONTH "%b" UTC)
string(TIMESTAMP TAV_BUILD_DAY "%d" UTC)
string(TIMESTAMP TAV_BUILD_YEAR "%Y" UTC)
string(TIMESTAMP TAV_BUILD_CLOCK "%H:%M:%S" UTC)
if(saved_epoch)
    set(ENV{SOURCE_DATE_EPOCH} ${saved_epoch})
else()
    unset(ENV{SOURCE_DATE_EPOCH})
endif()
string(REGEX REPLACE "^0" " " TAV_BUILD_DAY "${TAV_BUILD_DAY}")

configure_file(${PROJECT_SOURCE_DIR}/cmake/build_stamp.h.in
               ${PROJECT_BINARY_DIR}/generated/foundation/build_stamp.h @ONLY)
