# A big-endian machine whose char is unsigned. Its programs run here under qemu: `sh tools/steps.sh s390x`.
# Debian: apt install g++-s390x-linux-gnu qemu-user-static googletest
set(RAVCTL_CROSS_TRIPLET s390x-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(RAVCTL_EMULATOR qemu-s390x-static)
set(RAVCTL_LOADER ld64.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/emulated.cmake)
