find_package(GTest REQUIRED)
include(GoogleTest)

# zx_add_test(NAME [THREADS] [CPU ...] [LIBRARIES ...]): one program a module, from NAME_test.cpp in the
# current directory. It is linked against the shared library, with the log caught, unless it names
# its libraries itself. THREADS: also worth a run under the thread sanitizer.
# CPU: run once more with each of these values of ZX_CPU, for the paths of other processors.
function(zx_add_test name)
    cmake_parse_arguments(arg "THREADS" "" "LIBRARIES;CPU" ${ARGN})
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
    foreach(cpu IN LISTS arg_CPU)
        gtest_discover_tests(${name}_test TEST_PREFIX ${cpu}. TEST_LIST ${name}_${cpu}
                             PROPERTIES LABELS ${label} TIMEOUT 120 ENVIRONMENT ZX_CPU=${cpu}
                             DISCOVERY_TIMEOUT 60)
    endforeach()
endfunction()
