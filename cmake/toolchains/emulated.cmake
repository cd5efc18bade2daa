# What the cross builds of this folder have in common: Debian's cross compiler, programs linked statically so that qemu needs no
# libraries of the other machine, the emulator named to CMake alone (nothing is registered with the kernel), and
# GoogleTest from its sources.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${RAVCTL_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${RAVCTL_CROSS_TRIPLET}-g++)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static)

set(CMAKE_FIND_ROOT_PATH /usr/${RAVCTL_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(GTest_DIR ${CMAKE_CURRENT_LIST_DIR}/GoogleTestFromSource CACHE PATH "GoogleTest, built along")
