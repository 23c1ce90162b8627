# The reference of the public headers as a target, `reference`: HTML in the build folder.
find_program(TAV_DOXYGEN doxygen)
set(TAV_REFERENCE_INPUT ${PROJECT_SOURCE_DIR}/include)
set(TAV_REFERENCE_DIR ${PROJECT_BINARY_DIR}/reference)
set(TAV_REFERENCE_ALL YES)
set(TAV_REFERENCE_STRICT NO)
set(TAV_REFERENCE_FAIL FAIL_ON_WARNINGS)
configure_file(${PROJECT_SOURCE_DIR}/cmake/reference/Doxyfile.in ${TAV_REFERENCE_DIR}/Doxyfile @ONLY)
if(TAV_DOXYGEN)
    add_custom_target(reference COMMAND ${TAV_DOXYGEN} ${TAV_REFERENCE_DIR}/Doxyfile
                      COMMAND ${CMAKE_COMMAND} -E echo "reference: ${TAV_REFERENCE_DIR}/html/index.html"
                      VERBATIM)
else()
    add_custom_target(reference COMMAND ${CMAKE_COMMAND} -E echo "doxygen is missing: it is in the Debian package doxygen"
                      COMMAND ${CMAKE_COMMAND} -E false VERBATIM)
endif()
