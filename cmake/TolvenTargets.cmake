include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

# Two builds of the same files in different directories are equal: neither archives nor messages keep dates or paths.
set(CMAKE_CXX_ARCHIVE_CREATE "<CMAKE_AR> qcD <TARGET> <LINK_FLAGS> <OBJECTS>")
set(CMAKE_CXX_ARCHIVE_APPEND "<CMAKE_AR> qD <TARGET> <LINK_FLAGS> <OBJECTS>")
set(CMAKE_CXX_ARCHIVE_FINISH "<CMAKE_RANLIB> -D <TARGET>")

function(tolven_hardening target)
  target_compile_options(${target} PRIVATE -fstack-protector-strong)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    target_compile_options(${target} PRIVATE -fcf-protection)
  endif()
  # It needs an optimiser, and a distribution may ask for more of it.
  if(NOT "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "_FORTIFY_SOURCE")
    target_compile_options(${target} PRIVATE "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>")
  endif()
  target_link_options(${target} PRIVATE "LINKER:-z,relro,-z,now")
endfunction()

# Warnings and sanitizers are private to our own targets: one function, called for each of them.
function(tolven_options target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow $<$<BOOL:${TOLVEN_WERROR}>:-Werror>
    "-ffile-prefix-map=${PROJECT_BINARY_DIR}/=" "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
  # The checked calls and the sanitizers would stand in each other's way.
  if(TOLVEN_HARDENING AND NOT TOLVEN_SANITIZE AND NOT TOLVEN_FUZZ)
    tolven_hardening(${target})
  endif()
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
  list(FILTER sources EXCLUDE REGEX "/(main/(main|embedded)|library/archive_api)\\.cpp$")
  add_library(${name} STATIC ${sources})
  tolven_options(${name})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}/src" PRIVATE "${PROJECT_SOURCE_DIR}/include")
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
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT 600)
endfunction()
