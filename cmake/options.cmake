# Warnings and sanitizers, for everything that this project compiles: link to project_options.
add_library(project_options INTERFACE)
target_compile_options(project_options INTERFACE -Wall -Wextra -Wconversion -Wshadow -Wpedantic -Werror)

if(UHF_WHOLE)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 16)
  # Sees a test's class in an unnamed namespace as a header's.
  target_compile_options(project_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()

# keep_apart(FILES...): from the others of their target, with whose names theirs collide.
function(keep_apart)
  set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_SANITIZED "-O1 -g1 -fno-omit-frame-pointer")

if(UHF_SANITIZER STREQUAL "address")
  set(sanitizer_flags -fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(UHF_SANITIZER STREQUAL "thread")
  set(sanitizer_flags -fsanitize=thread)
elseif(NOT UHF_SANITIZER STREQUAL "")
  message(FATAL_ERROR "UHF_SANITIZER is \"${UHF_SANITIZER}\": give nothing, \"address\" or \"thread\"")
endif()
if(UHF_COVERAGE)
  list(APPEND sanitizer_flags -fprofile-instr-generate -fcoverage-mapping)
endif()
if(UHF_FUZZER)
  list(APPEND sanitizer_flags -fsanitize=fuzzer-no-link)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 15)
  # It has the coroutines of C++20 and does not say so; neither the standard library nor Boost would give them to it. Its
  # check of calls through pointers cannot be compiled with them.
  target_compile_definitions(project_options INTERFACE
    __cpp_impl_coroutine=201902L BOOST_ASIO_HAS_CO_AWAIT BOOST_ASIO_HAS_STD_COROUTINE)
  list(APPEND sanitizer_flags -fno-sanitize=function)
endif()
# Links a program of the host with an allocator that does not make a thread which frees a message wait for the one that
# makes the next, set up as achost has it. A sanitizer brings its own.
function(link_allocator target)
  if(UHF_SANITIZER STREQUAL "")
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/door/run/allocator.cpp
                   ${PROJECT_SOURCE_DIR}/door/run/memory_reserve.cpp)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} PRIVATE jemalloc)
  endif()
endfunction()

target_compile_options(project_options INTERFACE ${sanitizer_flags})
target_link_options(project_options INTERFACE ${sanitizer_flags})

# What makes an error of memory hard to use, in all that is shipped; tests/check-hardened looks at the files.
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
target_compile_options(project_options INTERFACE -fstack-protector-strong -fstack-clash-protection
  $<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  target_compile_options(project_options INTERFACE -fcf-protection)
endif()
target_link_options(project_options INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
