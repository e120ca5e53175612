# How every library, program and test of the project is built. One place for language level, warnings,
# sanitizers and output folders, so that a folder's CMakeLists.txt only lists its contents.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON) # the base headers use typeof and statement expressions
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

# wsmd_common: warnings, sanitizers, the shared headers ("protocol/...", "base/cxx/..."). For everything.
add_library(wsmd_common INTERFACE)
target_include_directories(wsmd_common INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(wsmd_common INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef -Wimplicit-fallthrough)
if(WSMD_WERROR)
  target_compile_options(wsmd_common INTERFACE -Werror)
endif()
# Texts are cut on purpose; the compiler's warnings about that depend on its optimisation.
target_compile_options(wsmd_common INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-format-truncation>)
target_compile_definitions(wsmd_common INTERFACE _GNU_SOURCE)
target_link_options(wsmd_common INTERFACE -Wl,--as-needed)
set(is_test $<BOOL:$<TARGET_PROPERTY:WSMD_IS_TEST>>)
if(WSMD_SANITIZE)
  target_compile_options(wsmd_common INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    -O1 -g1 # compiles in half the time, with equally good stack traces
    # GCC 12 gives false warnings for the C++ library's regular expressions when they are instrumented.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  # The tests themselves do without the checks at every pointer, a quarter of their time to compile: a bad one stops them anyway.
  target_compile_options(wsmd_common INTERFACE $<${is_test}:-fno-sanitize=null,vptr,alignment,object-size>)
  target_link_options(wsmd_common INTERFACE -fsanitize=address,undefined)
else()
  # Hardening for devices; the sanitizers have their own checks.
  target_compile_options(wsmd_common INTERFACE -fstack-protector-strong
    $<$<NOT:$<OR:$<CONFIG:Debug>,${is_test}>>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
  target_link_options(wsmd_common INTERFACE -Wl,-z,relro,-z,now)
endif()
# Tests run for milliseconds and compile for seconds; without optimisation they compile in half the time.
target_compile_options(wsmd_common INTERFACE $<${is_test}:-O0$<SEMICOLON>-g1>)

# wsmd_device: for code that runs on the access point. No exceptions, no RTTI, no C++ runtime library. What a library exports is
# marked; the rest is hidden, since exported functions are called through a table: on MIPS a sixth of a program's text.
add_library(wsmd_device INTERFACE)
target_link_libraries(wsmd_device INTERFACE wsmd_common)
target_compile_options(wsmd_device INTERFACE
  -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
# Unwind tables are a sixth of a program. Nothing here unwinds, and a debugger reads the debug information instead.
target_compile_options(wsmd_device INTERFACE $<$<CONFIG:Release,MinSizeRel>:-fno-asynchronous-unwind-tables>)

# wsmd_subdirectories(DIR...): each folder that has a CMakeLists.txt.
function(wsmd_subdirectories)
  foreach(dir IN LISTS ARGN)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
      add_subdirectory(${dir})
    endif()
  endforeach()
endfunction()

# wsmd_library(NAME SOURCES ... [OUTPUT file-name] [LIBS ...] [INCLUDE dir]): a shared library of the device.
function(wsmd_library name)
  cmake_parse_arguments(A "" "OUTPUT;INCLUDE" "SOURCES;LIBS" ${ARGN})
  add_library(${name} SHARED ${A_SOURCES})
  if(A_OUTPUT)
    set_target_properties(${name} PROPERTIES OUTPUT_NAME ${A_OUTPUT})
  endif()
  if(A_INCLUDE)
    target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${A_INCLUDE}>)
  endif()
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:wsmd_device> PUBLIC ${A_LIBS})
endfunction()

# wsmd_program(NAME SOURCES ... [OUTPUT file-name] [LIBS ...]): a program of the device.
function(wsmd_program name)
  cmake_parse_arguments(A "" "OUTPUT" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  if(A_OUTPUT)
    set_target_properties(${name} PROPERTIES OUTPUT_NAME ${A_OUTPUT})
  endif()
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_compile_definitions(${name} PRIVATE WSMD_VERSION="${PROJECT_VERSION}") # for --version
  target_link_options(${name} PRIVATE -pie)
  target_link_libraries(${name} PRIVATE wsmd_device ${A_LIBS})
endfunction()

# wsmd_tool(NAME SOURCES ... [LIBS ...]): a program of the lab; it may use the whole C++ library.
function(wsmd_tool name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_compile_definitions(${name} PRIVATE WSMD_VERSION="${PROJECT_VERSION}") # for --version
  target_link_libraries(${name} PRIVATE wsmd_common ${A_LIBS})
endfunction()

# The headers of GoogleTest take as long to compile as a test itself, so they are compiled once. Only with GCC, which lets programs
# with other definitions share them, and only with WSMD_SHARE_TEST_HEADERS, since the Clang tools of editors and linters cannot
# read headers that GCC has compiled.
function(wsmd_share_gtest_headers name)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR NOT WSMD_SHARE_TEST_HEADERS)
    return()
  endif()
  if(NOT TARGET wsmd_gtest_headers)
    file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/tests/gtest_headers.cpp CONTENT "int main() {}\n")
    add_executable(wsmd_gtest_headers EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/tests/gtest_headers.cpp)
    set_target_properties(wsmd_gtest_headers PROPERTIES WSMD_IS_TEST ON)
    target_precompile_headers(wsmd_gtest_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
    target_link_libraries(wsmd_gtest_headers PRIVATE wsmd_common GTest::gmock GTest::gtest)
  endif()
  # C, and what a test shares with a program, at which linters look as at the program's.
  get_target_property(sources ${name} SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.c$|^/|^\\.\\./")
  if(sources)
    set_source_files_properties(${sources} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
  endif()
  target_precompile_headers(${name} REUSE_FROM wsmd_gtest_headers)
endfunction()

# wsmd_gtest(NAME SOURCES ... [LIBS ...] [DEFINES ...]): a GoogleTest program in build/tests/, collected by
# tests/conftest.py. WSMD_GOLDEN_DIR names the folder of golden data.
function(wsmd_gtest name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS;DEFINES" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests WSMD_IS_TEST ON)
  target_compile_definitions(${name} PRIVATE WSMD_GOLDEN_DIR="${PROJECT_SOURCE_DIR}/tests/golden" ${A_DEFINES})
  target_link_libraries(${name} PRIVATE wsmd_common ${A_LIBS} GTest::gmock GTest::gtest GTest::gtest_main)
  wsmd_share_gtest_headers(${name})
  add_test(NAME ${name} COMMAND ${name})
endfunction()

# wsmd_benchmark(NAME SOURCES ... [LIBS ...]): a Google Benchmark program in build/bench/.
function(wsmd_benchmark name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
  target_link_libraries(${name} PRIVATE wsmd_common ${A_LIBS} benchmark::benchmark)
endfunction()

# wsmd_fuzzer(NAME SOURCE file CORPUS folder [LIBS ...]): one fuzz target. With WSMD_FUZZ it is linked with
# libFuzzer as build/fuzz/NAME; it is always linked with tests/fuzz/replay.cpp as build/fuzz/NAME-replay, which
# runs every file of the folders it is given once, so that the tests need no fuzzing engine.
function(wsmd_fuzzer name)
  cmake_parse_arguments(A "" "SOURCE;CORPUS" "LIBS;SOURCES" ${ARGN})
  add_executable(${name}-replay ${A_SOURCE} ${A_SOURCES} ${PROJECT_SOURCE_DIR}/tests/fuzz/replay.cpp)
  set_target_properties(${name}-replay PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
  target_link_libraries(${name}-replay PRIVATE wsmd_common ${A_LIBS})
  if(WSMD_FUZZ)
    add_executable(${name} ${A_SOURCE} ${A_SOURCES})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE wsmd_common ${A_LIBS})
  endif()
endfunction()

if(WSMD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
