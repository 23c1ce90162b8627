# The installed library with its two packages: for CMake and for pkg-config.
include(CMakePackageConfigHelpers)
install(TARGETS tav_im_nbr tav_im_nbr_kit EXPORT tav_im_nbrTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                                                                   ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TAV_JSON)
    install(TARGETS tav_im_json EXPORT tav_im_nbrTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(tav_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/tav_im_nbr)
install(EXPORT tav_im_nbrTargets NAMESPACE tav_im_nbr:: DESTINATION ${tav_package_folder})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tav_im_nbrConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/tav_im_nbrConfig.cmake
                              INSTALL_DESTINATION ${tav_package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tav_im_nbrConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tav_im_nbrConfig.cmake ${PROJECT_BINARY_DIR}/tav_im_nbrConfigVersion.cmake
        DESTINATION ${tav_package_folder})

# A static library leaves to its user what a shared one has linked: OpenSSL, threads and the C++ library.
file(RELATIVE_PATH tav_pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" tav_pc_prefix "${tav_pc_prefix}")
set(tav_pc_requires "")
set(tav_pc_libs "")
if(NOT TAV_SHARED)
    set(tav_pc_requires "openssl >= 1.1.1")
    set(tav_pc_libs "-pthread")
    foreach(library ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
        if(library MATCHES "^(stdc\\+\\+|c\\+\\+|m)$")
            string(APPEND tav_pc_libs " -l${library}")
        endif()
    endforeach()
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/tav_im_nbr.pc.in ${PROJECT_BINARY_DIR}/tav_im_nbr.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tav_im_nbr.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(TAV_JSON AND TAV_PYTHON_FOLDER)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/bindings/python/tav_im DESTINATION ${TAV_PYTHON_FOLDER}
            FILES_MATCHING PATTERN "*.py" PATTERN py.typed PATTERN __pycache__ EXCLUDE)
endif()
if(TAV_JSON)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/tav_im_json.pc.in ${PROJECT_BINARY_DIR}/tav_im_json.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/tav_im_json.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
