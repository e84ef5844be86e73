# What `cmake --install` puts where, and how other projects find it.

include(CMakePackageConfigHelpers)

install(
  TARGETS rkutils rkutils_static
  EXPORT rkutils
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(
  DIRECTORY "${PROJECT_SOURCE_DIR}/include/rkutils"
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING
  PATTERN "*.h")

install(
  EXPORT rkutils
  FILE rkutils-targets.cmake
  NAMESPACE rkutils::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/rkutils)
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/rkutils-config.cmake.in" "${PROJECT_BINARY_DIR}/rkutils-config.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/rkutils)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/rkutils-config-version.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/rkutils-config.cmake"
              "${PROJECT_BINARY_DIR}/rkutils-config-version.cmake"
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/rkutils)

configure_file("${PROJECT_SOURCE_DIR}/cmake/rkutils.pc.in" "${PROJECT_BINARY_DIR}/rkutils.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/rkutils.pc"
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
