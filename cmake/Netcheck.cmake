# Compiler settings and the helpers with which every folder declares its library and its tests.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_FLAGS_RELEASE "-O2")
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g")

add_library(netcheck_flags INTERFACE)
target_include_directories(netcheck_flags INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(netcheck_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
  -Werror)

if(NETCHECK_SANITIZE)
  target_compile_options(netcheck_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    # This one opens a pipe for each look, and takes a process without a free descriptor for a
    # faulty one.
    -fno-sanitize=vptr)
  target_link_options(netcheck_flags INTERFACE -fsanitize=address,undefined)
endif()
if(NETCHECK_SHADOW_SCAN)
  target_compile_definitions(netcheck_flags INTERFACE NETCHECK_SHADOW_SCAN)
endif()
if(NETCHECK_FUZZ)
  target_compile_options(netcheck_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# netcheck_library(NAME SOURCES... DEPENDS libraries...): one static library a folder.
function(netcheck_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC netcheck_flags ${ARG_DEPENDS})
  target_compile_options(${name} PRIVATE -Wconversion -Wno-sign-conversion)
endfunction()

# netcheck_test(NAME LABEL unit|process|servers SOURCES... DEPENDS libraries...): a GoogleTest
# program whose cases become CTest tests with the label.
function(netcheck_test name)
  cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "SOURCES;DEPENDS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} netcheck_flags GTest::gmock_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT})
endfunction()
