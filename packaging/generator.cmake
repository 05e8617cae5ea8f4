# Packages are installed below /usr, the tarball is one directory that stands by itself.
if(CPACK_GENERATOR STREQUAL "TGZ")
  set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
  set(CPACK_MONOLITHIC_INSTALL ON)
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
  set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
endif()
