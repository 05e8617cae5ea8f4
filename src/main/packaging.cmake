include(CMakePackageConfigHelpers)

install(FILES "${PROJECT_SOURCE_DIR}/include/tolven/tolven.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tolven")
install(TARGETS tolven_shared tolven_static EXPORT tolven-targets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(EXPORT tolven-targets NAMESPACE tolven:: DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/tolven")

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/tolven-config.cmake.in"
  "${CMAKE_CURRENT_BINARY_DIR}/tolven-config.cmake"
  INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/tolven")
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/tolven-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/tolven-config.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/tolven-config-version.cmake"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/tolven")

# Relative to itself: an installed tree may be moved, and --prefix may differ from the configured one.
file(RELATIVE_PATH tolven_pc_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" tolven_pc_to_prefix "${tolven_pc_to_prefix}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/tolven.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/tolven.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/tolven.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

if(EXISTS "${PROJECT_SOURCE_DIR}/docs/tolven.1")
  install(FILES "${PROJECT_SOURCE_DIR}/docs/tolven.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" RENAME TOLVEN.1)
endif()
