# How everything in this repository is compiled, and the two functions by which tests and benchmarks are added.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

# An installed program finds the libraries that are installed beside it.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

option(RAVEL_CLANG_TIDY "Run clang-tidy on every source that is compiled" OFF)
if(RAVEL_CLANG_TIDY)
    find_program(CLANG_TIDY clang-tidy REQUIRED)
    set(CMAKE_CXX_CLANG_TIDY "${CLANG_TIDY};--quiet")
endif()

find_package(Threads REQUIRED)

# Linked privately by every target of this repository.
add_library(ravel_build INTERFACE)
target_compile_options(ravel_build INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    # The order and the rounding of floating-point operations are behaviour.
    -ffp-contract=off
    # Messages and TRACE lines name sources relative to the repository.
    "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
# Element access is checked: an index out of range ends the process instead of reading past a buffer.
target_compile_definitions(ravel_build INTERFACE _GLIBCXX_ASSERTIONS)
target_link_libraries(ravel_build INTERFACE Threads::Threads)
if(RAVEL_WARNINGS_AS_ERRORS)
    target_compile_options(ravel_build INTERFACE -Werror)
endif()

if(RAVEL_SANITIZER)
    add_compile_options(-fsanitize=${RAVEL_SANITIZER} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${RAVEL_SANITIZER})
    if(RAVEL_SANITIZER MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()

# More than half of all compiling is that of the tests. They do without optimisation of their own (the product is what runs
# at night), with no more than lines in a backtrace, and read the framework's headers precompiled (ravel_test_headers).
# The preset debug leaves them as they are.
add_library(ravel_test_build INTERFACE)
target_compile_options(ravel_test_build INTERFACE $<$<CONFIG:RelWithDebInfo>:-O0;-g1>)
if(RAVEL_SANITIZER MATCHES "undefined")
    # Looked for in the product: in the tests it took two fifths of their compiling.
    target_compile_options(ravel_test_build INTERFACE -fno-sanitize=undefined)
endif()

# ravel_add_test(name SOURCES a.cpp ... LIBRARIES x::y ... [TIMEOUT seconds] [LABELS l ...])
# One program of GoogleTest cases; ctest sees the program as one test.
function(ravel_add_test name)
    if(NOT RAVEL_BUILD_TESTS)
        return()
    endif()
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ravel_build ravel_test_build ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
    set_target_properties(${name} PROPERTIES CXX_CLANG_TIDY "")  # it reads the product
    if(NOT TARGET ravel_test_headers)  # with the first test, when GoogleTest has been found
        add_executable(ravel_test_headers "${PROJECT_SOURCE_DIR}/cmake/testHeaders.cpp")
        target_link_libraries(ravel_test_headers PRIVATE ravel_build ravel_test_build GTest::gmock GTest::gtest_main)
        set_target_properties(ravel_test_headers PROPERTIES CXX_CLANG_TIDY "")
        target_precompile_headers(ravel_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
    endif()
    target_precompile_headers(${name} REUSE_FROM ravel_test_headers)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}"
        ENVIRONMENT "${RAVEL_TEST_ENVIRONMENT}")
endfunction()

# ravel_add_bench(name SOURCES a.cpp ... LIBRARIES x::y ...)
# One program of Google Benchmark cases; the tests run each case once, so that none rots.
function(ravel_add_bench name)
    if(NOT RAVEL_BUILD_BENCHMARKS)
        return()
    endif()
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ravel_build ${ARG_LIBRARIES} benchmark::benchmark)
    if(RAVEL_BUILD_TESTS)
        add_test(NAME ${name}.once COMMAND ${name} --benchmark_min_time=0.000001)
        set_tests_properties(${name}.once PROPERTIES TIMEOUT 300 LABELS bench ENVIRONMENT "${RAVEL_TEST_ENVIRONMENT}")
    endif()
endfunction()

# allocator_may_return_null: what a damaged file asks for may be more than there is (the FITS library sizes tables by what
# the header says, or by nothing at all where it says nothing); the sanitizers' allocators then refuse as the system's does
# instead of ending the process.
set(RAVEL_TEST_ENVIRONMENT
    "ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:allocator_may_return_null=1"
    "UBSAN_OPTIONS=print_stacktrace=1"
    "TSAN_OPTIONS=halt_on_error=0:allocator_may_return_null=1:second_deadlock_stack=1:suppressions=${PROJECT_SOURCE_DIR}/cmake/tsan.supp")
