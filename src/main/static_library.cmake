# All floors linked into one object, in which every name but those of the headers is made local: a program that
# links the archive meets no other symbol of it, not even the templates of the C++ library that it instantiates.
# Groups of duplicates are settled here, because a group that the program's linker dropped would take code away that
# only local names lead to.
add_library(tolven_embedded OBJECT ${tolven_entries})
tolven_options(tolven_embedded)
target_compile_definitions(tolven_embedded PRIVATE TOLVEN_VERSION="${PROJECT_VERSION}")
target_include_directories(tolven_embedded PRIVATE "${PROJECT_SOURCE_DIR}/include" "${PROJECT_SOURCE_DIR}/src")

set(objects "$<TARGET_OBJECTS:tolven_embedded>" ${tolven_floor_objects})
# Settling groups is the GNU linker's: the one beside another compiler may not know how.
find_program(TOLVEN_RELOCATING_LINKER NAMES ld.bfd ld REQUIRED)
find_program(TOLVEN_OBJCOPY NAMES objcopy REQUIRED)
set(whole "${CMAKE_CURRENT_BINARY_DIR}/tolven_whole.o")
add_custom_command(OUTPUT "${whole}"
  COMMAND "${TOLVEN_RELOCATING_LINKER}" -r --force-group-allocation -o "${whole}" ${objects}
  COMMAND "${TOLVEN_OBJCOPY}" --keep-global-symbol=extractTOLVENArchive --keep-global-symbol=getTOLVENOutput
    --wildcard --keep-global-symbol=tolven_* "${whole}"
  DEPENDS ${objects}
  COMMAND_EXPAND_LISTS VERBATIM)

add_library(tolven_static STATIC "${whole}")
set_source_files_properties("${whole}" PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
target_include_directories(tolven_static PUBLIC
  "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>" "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
target_link_libraries(tolven_static PUBLIC ${CMAKE_DL_LIBS})
set_target_properties(tolven_static PROPERTIES
  LINKER_LANGUAGE CXX
  OUTPUT_NAME tolven
  EXPORT_NAME tolven-static)
