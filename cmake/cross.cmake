# For another processor, with Debian's cross compiler and the tree that scripts/sysroot.sh makes.
# ZX_ARCH is Debian's name of the architecture. Its programs run under qemu.
if(NOT ZX_ARCH MATCHES "^(arm64|s390x)$")
    message(FATAL_ERROR "Set ZX_ARCH: arm64 or s390x")
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZX_ARCH)
set(processor_arm64 aarch64)
set(processor_s390x s390x)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${processor_${ZX_ARCH}})
set(CMAKE_LIBRARY_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR}-linux-gnu)
cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${ZX_ARCH})
if(NOT IS_DIRECTORY ${CMAKE_SYSROOT})
    message(FATAL_ERROR "There are no headers and libraries for ${ZX_ARCH}: run scripts/sysroot.sh ${ZX_ARCH}")
endif()
set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR} -L ${CMAKE_SYSROOT})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
