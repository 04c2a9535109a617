# Toolchain for arm64 Linux: Debian's cross compiler, the libraries that ./dev arm64 unpacks into
# build/sysroot-arm64, and qemu to run what was built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# The C library is the compiler's own, and none stands in the sysroot: with two of them threads hang
# under qemu.
cmake_path(SET sysroot NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-arm64)
set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The path to the libraries goes into the programs, and holds for what those libraries need as well.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--disable-new-dtags,-rpath-link,'${sysroot}/usr/lib/aarch64-linux-gnu'")
# As on a device, whose pages may have 16 KiB.
set(CMAKE_SHARED_LINKER_FLAGS_INIT -Wl,-z,max-page-size=16384)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/emulate)
