# 64-bit ARM with Debian's cross compiler, against the sysroot of cmake/arm64-sysroot; programs run
# under qemu's user emulation.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

cmake_path(SET LUM_SYSROOT NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/arm64-sysroot")
set(CMAKE_SYSROOT ${LUM_SYSROOT})
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static;-L;${LUM_SYSROOT})

set(CMAKE_FIND_ROOT_PATH ${LUM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${LUM_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${LUM_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${LUM_SYSROOT}/usr/share/pkgconfig)

# The linker looks for what shared libraries need among themselves where the sysroot keeps them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${LUM_SYSROOT}/usr/lib/aarch64-linux-gnu:${LUM_SYSROOT}/lib/aarch64-linux-gnu")
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${CMAKE_EXE_LINKER_FLAGS_INIT})
