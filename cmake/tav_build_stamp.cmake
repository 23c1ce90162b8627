# The build stamp: the time from SOURCE_DATE_EPOCH, else that of the commit, and the commit's first eight
# digits.  It is taken when the project is configured, so a commit alone rebuilds nothing.
# Sources without a history, as a tarball has them, name their version and the time at which they were packed.

# Builds that are made often and never shipped have one stamp for all commits: their objects are then found in a cache.
option(TAV_CONSTANT_STAMP "Name neither the commit nor its time in the build" OFF)
mark_as_advanced(TAV_CONSTANT_STAMP)
set(tav_constant_stamp 1577836800 00000000)

# Writes the header that tells the stamp, foundation/build_stamp.h, into a folder.
function(tav_write_build_stamp TAV_BUILD_TIME TAV_BUILD_REVISION folder)
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
    configure_file(${PROJECT_SOURCE_DIR}/cmake/build_stamp.h.in ${folder}/foundation/build_stamp.h @ONLY)
endfunction()

set(tav_build_time "$ENV{SOURCE_DATE_EPOCH}")
set(tav_build_revision "")
find_package(Git QUIET)
if(TAV_CONSTANT_STAMP)
    list(GET tav_constant_stamp 0 tav_build_time)
    list(GET tav_constant_stamp 1 tav_build_revision)
elseif(Git_FOUND AND EXISTS "${PROJECT_SOURCE_DIR}/.git")
    execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --short=8 HEAD
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                    OUTPUT_VARIABLE tav_build_revision OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    string(SUBSTRING "${tav_build_revision}" 0 8 tav_build_revision)
    if(NOT tav_build_time)
        execute_process(COMMAND ${GIT_EXECUTABLE} log -1 --format=%ct
                        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                        OUTPUT_VARIABLE tav_build_time OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    endif()
endif()
if(NOT tav_build_time MATCHES "^[0-9]+$")
    file(TIMESTAMP ${PROJECT_SOURCE_DIR}/CMakeLists.txt tav_build_time "%s" UTC)
endif()
if(NOT tav_build_revision MATCHES "^[0-9a-f]+$")
    set(tav_build_revision v${PROJECT_VERSION})
endif()
tav_write_build_stamp("${tav_build_time}" "${tav_build_revision}" ${PROJECT_BINARY_DIR}/generated)
