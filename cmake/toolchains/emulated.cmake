# What the cross builds of this folder have in common: Debian's cross compiler with the libraries beside it, the emulator
# named to CMake alone (nothing is registered with the kernel), and GoogleTest from its sources. The programs are linked
# dynamically: in a static one, calls that libc makes within itself would count as the program's (FaultInjector.h).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${RAVCTL_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${RAVCTL_CROSS_TRIPLET}-g++)
# Named in the program: told of a folder of libraries (-L), qemu looks for every path there first, "/" included.
set(libraries /usr/${RAVCTL_CROSS_TRIPLET}/lib)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${libraries}/${RAVCTL_LOADER} -Wl,-rpath,${libraries}")
set(CMAKE_CROSSCOMPILING_EMULATOR ${RAVCTL_EMULATOR})

set(CMAKE_FIND_ROOT_PATH /usr/${RAVCTL_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(GTest_DIR ${CMAKE_CURRENT_LIST_DIR}/GoogleTestFromSource CACHE PATH "GoogleTest, built along")
