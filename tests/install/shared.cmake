# Installs the project that was built in BUILD into an empty prefix, and builds and runs a consumer of it, by the CMake
# package and by pkg-config.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)

run(${CMAKE_COMMAND} -S ${SOURCE}/tests/install -B ${WORK}/package -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_PREFIX_PATH=${WORK}/prefix)
run(${CMAKE_COMMAND} --build ${WORK}/package)
run(${WORK}/package/consumer)
run(${WORK}/package/kit_consumer)

pkg_config_flags(${WORK}/prefix flags)
run(${CXX} -std=c++17 ${consumer} ${flags} -Wl,-rpath,${WORK}/prefix/${LIBDIR} -o ${WORK}/by-pkg-config)
run(${WORK}/by-pkg-config)

# The gateway comes with it, and finds the library beside it.
run(${WORK}/prefix/bin/tav-gateway --help)

# So does the tool, with a man page for each of its commands, and completion.
run(${WORK}/prefix/bin/tav --help)
foreach(file man/man1/tav.1 man/man1/tav-diff.1 bash-completion/completions/tav zsh/site-functions/_tav)
    file(SIZE ${WORK}/prefix/share/${file} size)
    expect("size GREATER 500" "share/${file} is empty")
endforeach()
