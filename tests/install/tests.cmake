# The library as its users get it: installed, as a part of another project, and from a tarball.
function(tav_install_test name script)
    add_test(NAME install.${name} ${ARGN}
             COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR} -DBUILD=${PROJECT_BINARY_DIR}
                     -DWORK=${CMAKE_CURRENT_BINARY_DIR}/install-work/${script} -DCC=${CMAKE_C_COMPILER}
                     -DCXX=${CMAKE_CXX_COMPILER} -DLAUNCHER=$<IF:$<BOOL:${TAV_CCACHE}>,${TAV_CCACHE},>
                     -DPKG_CONFIG=${TAV_PKG_CONFIG} -DGENERATOR=${CMAKE_GENERATOR} -DLIBDIR=${CMAKE_INSTALL_LIBDIR}
                     -P ${CMAKE_CURRENT_SOURCE_DIR}/install/${script}.cmake)
endfunction()

tav_find_program(test pkgconf TAV_PKG_CONFIG pkg-config)
if(TAV_SHARED)
    tav_install_test(consumers_build_and_run shared)
endif()
tav_install_test(parent_project_has_it_static static CONFIGURATIONS long)
set_tests_properties(install.parent_project_has_it_static PROPERTIES LABELS long)
tav_install_test(configuring_tells_what_is_missing configure)
add_test(NAME install.library_holds_no_source_path
         COMMAND ${CMAKE_COMMAND} -DLIBRARY=$<TARGET_FILE:tav_im_nbr> -DSOURCE=${PROJECT_SOURCE_DIR}
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/install/no_source_path.cmake)
