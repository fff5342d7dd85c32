# add_unit_test(NAME SOURCES... LIBRARIES...): a GoogleTest program whose tests ctest runs one by one. The tests' names
# begin with the build's, so that the builds of several presets can be run as one.
if(CMAKE_CROSSCOMPILING)
  # Debian has the library for its own architecture alone, and the source for all.
  add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

cmake_path(GET CMAKE_BINARY_DIR FILENAME test_prefix)

# Under the thread sanitizer each process that ends would sleep for a second, for the races of threads that it left
# behind; what the tests start leaves none that matters. libmosquitto calls back with a lock of its own held, and takes
# others when a callback publishes; one thread has a connection to itself, so nobody waits for anybody.
set(test_environment)
if(UHF_SANITIZER STREQUAL "thread")
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/suppressions CONTENT "deadlock:libmosquitto\n")
  set(test_environment ENVIRONMENT TSAN_OPTIONS=atexit_sleep_ms=20:suppressions=${CMAKE_BINARY_DIR}/suppressions)
endif()

# To optimise a test takes longer than the test, unless it computes a lot (COMPUTES) or is emulated. Compiled as a whole
# they also share the headers that most of them have, read once.
set(common_headers <gmock/gmock.h> <gtest/gtest.h> <algorithm> <atomic> <chrono> <condition_variable> <filesystem> <fstream>
    <functional> <map> <memory> <mutex> <optional> <set> <sstream> <string> <thread> <vector>)
if(UHF_WHOLE AND NOT CMAKE_CROSSCOMPILING)
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/generated/nothing.cpp CONTENT "int main() {}\n")
  add_executable(common_headers EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/generated/nothing.cpp)
  target_compile_options(common_headers PRIVATE -O0)
  target_link_libraries(common_headers PRIVATE project_options GTest::gmock)
  target_precompile_headers(common_headers PRIVATE ${common_headers})
endif()

function(add_unit_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "COMPUTES" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE project_options ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  if(NOT arg_COMPUTES AND NOT CMAKE_CROSSCOMPILING)
    target_compile_options(${name} PRIVATE -O0)
    if(UHF_WHOLE)
      target_precompile_headers(${name} REUSE_FROM common_headers)
    endif()
  endif()
  gtest_discover_tests(${name} TEST_PREFIX "${test_prefix}." NO_PRETTY_VALUES
    PROPERTIES TIMEOUT 120 ${test_environment}
    DISCOVERY_TIMEOUT 60)
endfunction()

# A main() for the tests that start the plug-in's threads, which never stop.
set(threads_main ${PROJECT_SOURCE_DIR}/tests/support/threads_main.cpp)
