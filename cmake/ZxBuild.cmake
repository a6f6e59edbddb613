# The flags of every target of the project.

set(ZX_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
option(ZX_COVERAGE "Count which lines and branches run (needs gcc)" OFF)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

add_library(zx_flags INTERFACE)
target_compile_definitions(zx_flags INTERFACE _GNU_SOURCE)
target_compile_options(
    zx_flags
    INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef
              -Wcast-qual -Werror
              # For short copies of unknown length, a call into the C library is ten times faster
              # than the inline "rep movs" that this compiler would choose.
              $<$<AND:$<CXX_COMPILER_ID:GNU>,$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>>:-mstringop-strategy=libcall>
              # Clang complains of formats that are passed on with a va_list; gcc does not.
              $<$<CXX_COMPILER_ID:Clang>:-Wno-format-nonliteral>
              $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:Clang>>:-Wthread-safety>
              $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)

if(ZX_SANITIZE)
    # For tests: compilers have different names for this.
    if(ZX_SANITIZE MATCHES "address")
        target_compile_definitions(zx_flags INTERFACE ZX_ASAN)
    elseif(ZX_SANITIZE MATCHES "thread")
        target_compile_definitions(zx_flags INTERFACE ZX_TSAN)
    endif()
    target_compile_options(
        zx_flags INTERFACE -fsanitize=${ZX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(zx_flags INTERFACE -fsanitize=${ZX_SANITIZE})
    # Clang puts the sanitizers into the program. The libraries need those for C++, also in a program in C.
    target_link_options(zx_flags INTERFACE $<$<LINK_LANG_AND_ID:C,Clang>:-fsanitize-link-c++-runtime>)
    target_link_libraries(zx_flags INTERFACE $<$<LINK_LANG_AND_ID:C,Clang>:stdc++>)
else()
    target_link_options(zx_flags INTERFACE -Wl,-z,defs)
    target_compile_options(zx_flags INTERFACE -fstack-protector-strong $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    target_link_options(zx_flags INTERFACE -Wl,-z,relro,-z,now)
endif()

if(ZX_COVERAGE)
    target_compile_options(zx_flags INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(zx_flags INTERFACE --coverage)
    target_sources(zx_flags INTERFACE ${PROJECT_SOURCE_DIR}/tests/support/coverage_exit.c)
endif()

# The libraries throw nothing and need no run-time types. Everything that they define is declared in
# a header or local to its file.
add_library(zx_library_flags INTERFACE)
target_link_libraries(zx_library_flags INTERFACE zx_flags)
target_compile_options(
    zx_library_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti> -fno-semantic-interposition
                               -Wmissing-declarations)

# zx_version_script(TARGET FILE): exports what the linker script FILE lists and nothing else.
function(zx_version_script target file)
    target_link_options(${target} PRIVATE -Wl,--version-script=${file})
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${file})
endfunction()
