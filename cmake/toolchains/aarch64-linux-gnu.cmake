# 64-bit ARM, whose char is unsigned. Its programs run here under qemu: `sh tools/steps.sh aarch64`.
# Debian: apt install g++-aarch64-linux-gnu qemu-user-static googletest
set(RAVCTL_CROSS_TRIPLET aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(RAVCTL_EMULATOR qemu-aarch64-static)
set(RAVCTL_LOADER ld-linux-aarch64.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/emulated.cmake)
