include(GoogleTest)

# Test programs are optimised only a little: what they test is in the libraries, and the templates
# of GoogleTest take most of the build. All of them use one precompiled header, so libraries and
# programs of the tests have the same flags.
add_library(zx_test_flags INTERFACE)
target_link_libraries(zx_test_flags INTERFACE zx_flags GTest::gmock)
target_include_directories(zx_test_flags INTERFACE ${PROJECT_SOURCE_DIR}/tests/support)
target_compile_options(zx_test_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-O1> -fPIC)

file(WRITE ${PROJECT_BINARY_DIR}/zx_test_header.cpp "")
add_library(zx_test_header OBJECT ${PROJECT_BINARY_DIR}/zx_test_header.cpp)
target_link_libraries(zx_test_header PRIVATE zx_test_flags)
target_precompile_headers(
    zx_test_header PRIVATE <gmock/gmock.h> <algorithm> <array> <atomic> <chrono> <cstdlib> <cstring>
    <filesystem> <fstream> <functional> <map> <memory> <sstream> <string> <thread> <utility> <vector>)

# zx_precompile(TARGET): TARGET, which links zx_test_flags, takes the compiled header.
function(zx_precompile target)
    target_precompile_headers(${target} REUSE_FROM zx_test_header)
endfunction()

# Builds what the thread sanitizer checks: the programs of the tests with the label "threads".
add_custom_target(threads_tests)

# The values of ZX_CPU that hide features of this kind of processor, for the paths of other ones.
set(ZX_CPUS_x86_64 avx2 narrow portable)
set(ZX_CPUS_aarch64 portable)
set(ZX_CPUS ${ZX_CPUS_${CMAKE_SYSTEM_PROCESSOR}})

# zx_add_test(NAME [THREADS] [LONG] [CPUS] [LIBRARIES ...]): one program a module, from NAME_test.cpp in the
# current directory. It is linked against the shared library, with the log caught, unless it names
# its libraries itself. THREADS: also worth a run under the thread sanitizer.
# LONG: takes seconds, so that it begins before the others. CPUS: run once more with each of ZX_CPUS.
function(zx_add_test name)
    cmake_parse_arguments(arg "THREADS;LONG;CPUS" "" "LIBRARIES" ${ARGN})
    if(NOT arg_LIBRARIES)
        set(arg_LIBRARIES zx_test_support)
    endif()
    add_executable(${name}_test ${name}_test.cpp)
    target_link_libraries(${name}_test PRIVATE ${arg_LIBRARIES})
    zx_precompile(${name}_test)
    set(label plain)
    if(arg_THREADS)
        set(label threads)
        add_dependencies(threads_tests ${name}_test)
    endif()
    set(cost 0)
    if(arg_LONG)
        set(cost 10)
    endif()
    gtest_discover_tests(${name}_test PROPERTIES LABELS ${label} COST ${cost} TIMEOUT 600 DISCOVERY_TIMEOUT 300)
    if(NOT arg_CPUS)
        return()
    endif()
    foreach(cpu IN LISTS ZX_CPUS)
        gtest_discover_tests(${name}_test TEST_PREFIX ${cpu}. TEST_LIST ${name}_${cpu}
                             PROPERTIES LABELS ${label} COST ${cost} TIMEOUT 600 ENVIRONMENT ZX_CPU=${cpu}
                             DISCOVERY_TIMEOUT 300)
    endforeach()
endfunction()
