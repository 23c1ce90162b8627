# Makes the wheel of what was built in BUILD, twice, installs it into a folder without network, and runs the package's
# tests on what was installed.
include(${CMAKE_CURRENT_LIST_DIR}/../install/steps.cmake)

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
file(GLOB libraries ${WORK}/prefix/${LIBDIR}/libtav_im_json.so.${VERSION} ${WORK}/prefix/${LIBDIR}/libtav_im_nbr.so.${VERSION})
set(ENV{SOURCE_DATE_EPOCH} 1700000000)
set(ENV{PYTHONDONTWRITEBYTECODE} 1)
foreach(turn first second)
    run(${PYTHON} ${SOURCE}/make_wheel.py ${WORK}/${turn} ${VERSION} ${libraries})
    file(GLOB wheel ${WORK}/${turn}/*.whl)
    file(SHA256 ${wheel} ${turn})
endforeach()
expect("first STREQUAL second" "two wheels of the same sources differ")

run(${PYTHON} -m pip install --quiet --disable-pip-version-check --no-index --no-deps --target ${WORK}/site ${wheel})
expect("EXISTS ${WORK}/site/tav_im/py.typed" "the wheel says nothing of its types")
# Only what was installed can be found.
file(COPY ${SOURCE}/tests ${SOURCE}/examples DESTINATION ${WORK}/elsewhere)
set(ENV{PYTHONPATH} ${WORK}/site)
set(ENV{TAV_GATEWAY} ${GATEWAY})
set(ENV{TAV_IM_JSON_LIBRARY})
run(${CMAKE_COMMAND} -E chdir ${WORK}/elsewhere ${PYTHON} -m unittest tests.test_client tests.test_bot)
run(${CMAKE_COMMAND} -E chdir ${WORK}/elsewhere ${PYTHON} -c "
import pathlib, tav_im, tav_im._library as library
where = pathlib.Path(tav_im.__file__).parent
assert str(where) == '${WORK}/site/tav_im', where
maps = pathlib.Path('/proc/self/maps').read_text()
for name in ('libtav_im_json.so.1', 'libtav_im_nbr.so.1'):
    assert str(where / name) in maps, name
")
