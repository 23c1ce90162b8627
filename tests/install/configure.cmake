# What configuring tells: sources without a history name their version in the build stamp; the library alone needs no
# package of the tests; and who wants these hears what is missing and what installs it.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)

# As a tarball has them.
foreach(entry CMakeLists.txt CMakePresets.json cmake include src tools bindings gateway examples tests bench)
    file(COPY ${SOURCE}/${entry} DESTINATION ${WORK}/tarball)
endforeach()
set(ENV{SOURCE_DATE_EPOCH})
set(without "")
foreach(package CLI11 GTest benchmark Protobuf nlohmann_json pugixml spdlog)
    list(APPEND without -DCMAKE_DISABLE_FIND_PACKAGE_${package}=ON)
endforeach()

function(configure folder)
    execute_process(COMMAND ${CMAKE_COMMAND} -S ${WORK}/tarball -B ${WORK}/${folder} -G ${GENERATOR}
                            -DCMAKE_CXX_COMPILER=${CXX} ${ARGN}
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    set(result "${result}" PARENT_SCOPE)
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    set(output "${output}" PARENT_SCOPE)
endfunction()

configure(library ${without} -DTAV_RAPIDJSON_INCLUDE_DIR=NOTFOUND)
expect("result EQUAL 0" "the library alone wants more than asio and OpenSSL: ${output}")

file(STRINGS ${WORK}/library/generated/foundation/build_stamp.h lines REGEX "^#define")
string(REGEX MATCH "TAV_BUILD_STAMP \"[1-9][0-9]*\\.v[0-9]+\\.[0-9]+\\.[0-9]+\"" stamp "${lines}")
expect("stamp" "the stamp names no version: ${lines}")
string(REGEX MATCH "TAV_IMPL_NAMESPACE impl[0-9]+_v[0-9]+_[0-9]+_[0-9]+;" name "${lines};")
expect("name" "the name of the namespace is no name: ${lines}")

configure(tools -DTAV_TOOLS=ON)
expect("result EQUAL 0" "the tool can't be configured without the gateway and the examples: ${output}")

function(expect_named what part debian_package)
    expect("NOT result EQUAL 0" "the tests are configured without ${what}")
    string(FIND "${output}" "${what} is missing: it is in the Debian package ${debian_package}" named)
    string(FIND "${output}" "scripts/packages.sh ${part} " script)
    expect("NOT named EQUAL -1 AND NOT script EQUAL -1" "this does not help who lacks ${what}: ${output}")
endfunction()

configure(tools ${without} -DTAV_TOOLS=ON)
expect_named(CLI11 demo libcli11-dev)

foreach(case "CLI11 demo libcli11-dev" "GTest test libgtest-dev" "benchmark test libbenchmark-dev"
             "Protobuf test protobuf-compiler" "nlohmann_json test nlohmann-json3-dev" "pugixml test libpugixml-dev" "spdlog test libspdlog-dev"
             "OpenSSL library libssl-dev")
    string(REPLACE " " ";" case "${case}")
    list(GET case 0 package)
    list(GET case 1 part)
    list(GET case 2 debian_package)
    configure(tests -UCMAKE_DISABLE_FIND_PACKAGE_* -DCMAKE_DISABLE_FIND_PACKAGE_${package}=ON -DTAV_DEVELOPMENT=ON
              -DTAV_TESTS=ON)
    expect_named(${package} ${part} ${debian_package})
endforeach()

# A program that is where no program is looked for.
get_filename_component(programs ${PKG_CONFIG} DIRECTORY)
configure(tests -UCMAKE_DISABLE_FIND_PACKAGE_* -UTAV_PKG_CONFIG -DTAV_OPENSSL=${CMAKE_COMMAND}
          -DCMAKE_IGNORE_PATH=${programs} -DCMAKE_SYSTEM_IGNORE_PATH=/bin)
expect_named(pkg-config test pkgconf)
