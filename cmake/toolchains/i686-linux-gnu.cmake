# A 32-bit machine. Its programs run here under qemu, or by the kernel if it can: `sh tools/steps.sh i386`.
# Debian: apt install g++-i686-linux-gnu qemu-user-static googletest
set(RAVCTL_CROSS_TRIPLET i686-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(RAVCTL_EMULATOR qemu-i386-static)
set(RAVCTL_LOADER ld-linux.so.2)
include(${CMAKE_CURRENT_LIST_DIR}/emulated.cmake)
