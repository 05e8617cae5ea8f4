include(CMakePackageConfigHelpers)

install(TARGETS TOLVEN RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tolven)
install(FILES "${PROJECT_SOURCE_DIR}/include/tolven/tolven.h" "${PROJECT_SOURCE_DIR}/include/tolven/archive.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tolven" COMPONENT libtolven-dev)
install(TARGETS tolven_shared tolven_static EXPORT tolven-targets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libtolven1 NAMELINK_COMPONENT libtolven-dev
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libtolven-dev)

set(cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/tolven")
install(EXPORT tolven-targets NAMESPACE tolven:: DESTINATION "${cmake_dir}" COMPONENT libtolven-dev)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/tolven-config.cmake.in"
  "${CMAKE_CURRENT_BINARY_DIR}/tolven-config.cmake"
  INSTALL_DESTINATION "${cmake_dir}")
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/tolven-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/tolven-config.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/tolven-config-version.cmake"
  DESTINATION "${cmake_dir}" COMPONENT libtolven-dev)

# Relative to itself: an installed tree may be moved, and --prefix may differ from the configured one. A directory that
# was given in full stays where it is.
foreach(kind IN ITEMS LIBDIR INCLUDEDIR)
  string(TOLOWER "tolven_pc_${kind}" variable)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(${variable} "${CMAKE_INSTALL_${kind}}")
  else()
    set(${variable} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(tolven_pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH tolven_pc_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" tolven_pc_prefix "\${pcfiledir}/${tolven_pc_prefix}")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/tolven.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/tolven.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/tolven.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
  COMPONENT libtolven-dev)
