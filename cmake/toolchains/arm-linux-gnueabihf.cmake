# The unit's own architecture: 32-bit ARM with hardware floating point, on an i.MX6 (Cortex-A9 with NEON), by Debian's
# cross compiler (g++-arm-linux-gnueabihf).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# All is built by one compiler: that older ones than GCC 7.1 passed some parameters otherwise matters to nobody.
set(CMAKE_CXX_FLAGS_INIT "-mcpu=cortex-a9 -mfpu=neon -mfloat-abi=hard -Wno-psabi")

# The C library comes with the compiler; what tests, benchmarks and the virtual unit need beside it is unpacked by
# tools/armhf-sysroot. Nothing of this machine is found in their place.
set(TAV_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-armhf)
cmake_path(NORMAL_PATH TAV_ARMHF_SYSROOT)
if(EXISTS ${TAV_ARMHF_SYSROOT})
    list(APPEND CMAKE_FIND_ROOT_PATH ${TAV_ARMHF_SYSROOT}) # behind what the caller has given
endif()
list(APPEND CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TAV_ARMHF_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${TAV_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${TAV_ARMHF_SYSROOT}/usr/share/pkgconfig)

# Its programs run on this machine where QEMU's user emulation (qemu-user-static) is there.
find_program(TAV_QEMU_ARM NAMES qemu-arm-static qemu-arm)
mark_as_advanced(TAV_QEMU_ARM)
if(TAV_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TAV_QEMU_ARM} -L /usr/arm-linux-gnueabihf)
endif()
