# Toolchain file: builds for arm64 on a Debian machine of another architecture. It needs the packages
# g++-aarch64-linux-gnu, pkgconf:arm64 and the libraries' development packages as NAME:arm64; with
# qemu-user, the tests run here.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Packages of several architectures lie side by side. FindOpenSSL asks pkg-config, which would name
# this machine's.
set(PKG_CONFIG_EXECUTABLE aarch64-linux-gnu-pkg-config)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu;/usr/lib/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)

find_program(TALVENSOR_EMULATOR NAMES qemu-aarch64 qemu-aarch64-static)
if(TALVENSOR_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TALVENSOR_EMULATOR})
endif()
