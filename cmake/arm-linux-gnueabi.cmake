# Cross build for the device: 32-bit ARM, soft-float ABI (Debian's armel),
# with Debian's arm-linux-gnueabi compilers.  Test programs are linked
# statically and run under qemu-arm.  The cairo side of the platform layer is
# left out: the device brings its own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)

# Where tools/arm-sysroot.sh unpacked the armel zlib.
set(TABULON_ARM_SYSROOT "" CACHE PATH "Folder with Debian's armel zlib unpacked")
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi ${TABULON_ARM_SYSROOT}/usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)
set(ZLIB_USE_STATIC_LIBS ON)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
set(TABULON_WITH_CAIRO OFF CACHE BOOL "" FORCE)
# GCC notes that std::vector iterators are passed differently than before
# GCC 7.1: the whole build uses one compiler, so the note tells nothing.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
