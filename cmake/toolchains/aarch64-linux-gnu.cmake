# Cross build for 64-bit ARM Linux with Debian's multiarch packages
# (crossbuild-essential-arm64 and the :arm64 development packages of Qt).
# Qt's code generators (moc, rcc) are the build machine's own. Test programs
# run under qemu-user when it is installed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Libraries and headers of the target only; programs of the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# pkg-config reads the target's .pc files.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
unset(ENV{PKG_CONFIG_PATH})

find_program(NEREON_QEMU_AARCH64 qemu-aarch64)
if(NEREON_QEMU_AARCH64)
    # The target's loader and libraries are installed where multiarch puts them.
    set(CMAKE_CROSSCOMPILING_EMULATOR ${NEREON_QEMU_AARCH64})
endif()
