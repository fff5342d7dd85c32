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
# behind; what the tests start leaves none that matters.
set(test_environment)
if(UHF_SANITIZER STREQUAL "thread")
  set(test_environment ENVIRONMENT TSAN_OPTIONS=atexit_sleep_ms=20)
endif()

function(add_unit_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE project_options ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} TEST_PREFIX "${test_prefix}." NO_PRETTY_VALUES
    PROPERTIES TIMEOUT 120 ${test_environment}
    DISCOVERY_TIMEOUT 60)
endfunction()

# A main() for the tests that start the plug-in's threads, which never stop.
set(threads_main ${PROJECT_SOURCE_DIR}/tests/support/threads_main.cpp)
