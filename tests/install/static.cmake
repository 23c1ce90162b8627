# A project that has the library as a part: nothing of it is installed with the project unless that is asked for; then
# there is a package of the static library, and consumers of it need nothing at run time.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)

run(${CMAKE_COMMAND} -S ${SOURCE}/tests/install/parent -B ${WORK}/parent -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER} -DCMAKE_BUILD_TYPE=Release -DTAV_SOURCE=${SOURCE}
    # A folder of two levels, as multi-architecture systems have them.
    -DCMAKE_INSTALL_LIBDIR=lib/anywhere)
run(${CMAKE_COMMAND} --build ${WORK}/parent)
run(${WORK}/parent/consumer)

run(${CMAKE_COMMAND} --install ${WORK}/parent --prefix ${WORK}/parent-prefix)
file(GLOB_RECURSE installed RELATIVE ${WORK}/parent-prefix ${WORK}/parent-prefix/*)
expect("installed STREQUAL share/parent/CMakeLists.txt" "a parent's install has taken ours along: ${installed}")

run(${CMAKE_COMMAND} -DTAV_INSTALL=ON ${WORK}/parent)
run(${CMAKE_COMMAND} --install ${WORK}/parent --prefix ${WORK}/prefix)
expect("EXISTS ${WORK}/prefix/lib/anywhere/libtav_im_nbr.a" "no static library was installed")

run(${CMAKE_COMMAND} -S ${SOURCE}/tests/install -B ${WORK}/package -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -Dtav_im_nbr_DIR=${WORK}/prefix/lib/anywhere/cmake/tav_im_nbr)
run(${CMAKE_COMMAND} --build ${WORK}/package)
run(${WORK}/package/consumer)

pkg_config_flags(${WORK}/prefix flags --static)
run(${CXX} -std=c++17 ${consumer} ${flags} -o ${WORK}/by-pkg-config)
run(${WORK}/by-pkg-config)
# The C++ library is named too, for a linker that does not add it by itself.
run(${CXX} -std=c++17 -c ${consumer} ${flags} -o ${WORK}/consumer.o)
run(${CC} ${WORK}/consumer.o ${flags} -o ${WORK}/by-c-linker)
run(${WORK}/by-c-linker)
