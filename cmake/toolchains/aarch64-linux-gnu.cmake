# Cross-compiles for 64-bit ARM Linux with Debian's cross compiler (g++-aarch64-linux-gnu)
# and runs what it builds under qemu-user, so that ctest executes the AArch64 tests here:
#
#   cmake -S . -B build-aarch64 \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
#     -DCMAKE_PREFIX_PATH="<AArch64 protobuf prefix>;<AArch64 GoogleTest prefix>" \
#     -DProtobuf_PROTOC_EXECUTABLE=<host protoc of the same release>
#
# Libraries and headers are taken only from the cross root and from the prefixes named in
# CMAKE_PREFIX_PATH; programs (protoc, bpfmt) only from the host.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(PERIPHERALCONFIG_CROSS_ROOT /usr/aarch64-linux-gnu CACHE PATH "Root of the AArch64 C library and runtime")
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(CMAKE_FIND_ROOT_PATH ${PERIPHERALCONFIG_CROSS_ROOT} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# qemu-user finds the AArch64 loader and C library under the cross root; the build tree's
# executables find libprotobuf and the schema library through their RPATH.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${PERIPHERALCONFIG_CROSS_ROOT})
