# The library, its headers, and the files through which pkg-config and CMake find them.

include(CMakePackageConfigHelpers)

install(TARGETS zentadbpp EXPORT zentadbppTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES "${ZENTADBPP_HEADER}" ${ZENTADBPP_CPP_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zentadbpp)
install(EXPORT zentadbppTargets NAMESPACE zentadbpp:: DESTINATION ${package_dir})
configure_package_config_file(
    cmake/zentadbppConfig.cmake.in "${PROJECT_BINARY_DIR}/package/zentadbppConfig.cmake"
    INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/package/zentadbppConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/package/zentadbppConfig.cmake" "${PROJECT_BINARY_DIR}/package/zentadbppConfigVersion.cmake"
    DESTINATION ${package_dir})

file(RELATIVE_PATH from_pkgconfig_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(cmake/zentadbpp.pc.in "${PROJECT_BINARY_DIR}/package/zentadbpp.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/zentadbpp.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
