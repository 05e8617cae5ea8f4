# Warnings and sanitizers are private to our own targets: one function, called for each of them.
function(tolven_options target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror)
  # Symbols that are unique in a process stay global whatever a linker is told.
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>)
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    C_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  if(TOLVEN_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${TOLVEN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${TOLVEN_SANITIZE})
  endif()
  if(TOLVEN_FUZZ)
    # Coverage for libFuzzer to follow; the sanitizers' runtime answers it in programs that are no fuzz targets.
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

# tolven_floor(FOLDER DEPS folder ...)
# A folder of src/ as a library of its own: every .cpp in it but the entries of programs and libraries. It sees what the
# folders behind DEPS give and nothing above, so a call to a higher floor fails to link. Sets tolven_floor_target.
function(tolven_floor folder)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  string(REPLACE "/" "_" name "tolven_${folder}")
  file(GLOB sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/src/${folder}/*.cpp")
  list(FILTER sources EXCLUDE REGEX "/main/(main|embedded)\\.cpp$")
  add_library(${name} STATIC ${sources})
  tolven_options(${name})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}/src")
  foreach(dependency IN LISTS ARG_DEPS)
    string(REPLACE "/" "_" dependency "tolven_${dependency}")
    target_link_libraries(${name} PUBLIC ${dependency})
  endforeach()
  set(tolven_floor_target ${name} PARENT_SCOPE)
endfunction()

# tolven_unit_test(NAME DEPS library_under_test ...)
# One test program a folder: every .cpp beside the calling CMakeLists.txt.
function(tolven_unit_test name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  find_package(GTest REQUIRED)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_executable(${name} ${sources})
  tolven_options(${name})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests/unit")
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT 600)
endfunction()
