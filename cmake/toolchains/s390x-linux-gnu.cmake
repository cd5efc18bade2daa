# Cross build for s390x, a big-endian machine, whose tests run here under qemu:
#
#   cmake -G Ninja -B build/s390x -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/s390x-linux-gnu.cmake -DCMAKE_BUILD_TYPE=Debug
#   ninja -C build/s390x json_test base_test && ctest --test-dir build/s390x -R '^Json'
#
# Debian: apt install g++-s390x-linux-gnu qemu-user-static googletest
set(RAVCTL_CROSS_TRIPLET s390x-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR s390x)
include(${CMAKE_CURRENT_LIST_DIR}/emulated.cmake)
