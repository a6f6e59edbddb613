find_package(GTest REQUIRED)
include(GoogleTest)

# zx_add_test(NAME [THREADS] [PORTABLE] [LIBRARIES ...]): one program a module, from NAME_test.cpp in the
# current directory. It is linked against the shared library, with the log caught, unless it names
# its libraries itself. THREADS: also worth a run under the thread sanitizer.
# PORTABLE: run once more without what only some processors have.
function(zx_add_test name)
    cmake_parse_arguments(arg "THREADS;PORTABLE" "" "LIBRARIES" ${ARGN})
    if(NOT arg_LIBRARIES)
        set(arg_LIBRARIES zx_test_support)
    endif()
    add_executable(${name}_test ${name}_test.cpp)
    target_link_libraries(${name}_test PRIVATE ${arg_LIBRARIES})
    set(label plain)
    if(arg_THREADS)
        set(label threads)
    endif()
    gtest_discover_tests(${name}_test PROPERTIES LABELS ${label} TIMEOUT 120 DISCOVERY_TIMEOUT 60)
    if(arg_PORTABLE)
        gtest_discover_tests(${name}_test TEST_PREFIX portable. TEST_LIST ${name}_portable
                             PROPERTIES LABELS ${label} TIMEOUT 120 ENVIRONMENT ZX_CPU=portable
                             DISCOVERY_TIMEOUT 60)
    endif()
endfunction()
