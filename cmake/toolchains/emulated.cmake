# The common part of the cross builds in this folder:
#   - Debian's cross compiler with its libraries
#   - the emulator; only CMake gets its name, nothing is registered with the kernel
#   - GoogleTest from its sources
# The programs are linked dynamically. In a static program, calls that libc makes within itself would count as calls of
# the program (FaultInjector.h).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${RAVCTL_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${RAVCTL_CROSS_TRIPLET}-g++)
# The program itself names the folder of its libraries. With the option -L qemu would look for every path in that folder
# first, even for "/".
set(libraries /usr/${RAVCTL_CROSS_TRIPLET}/lib)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${libraries}/${RAVCTL_LOADER} -Wl,-rpath,${libraries}")
set(CMAKE_CROSSCOMPILING_EMULATOR ${RAVCTL_EMULATOR})

set(CMAKE_FIND_ROOT_PATH /usr/${RAVCTL_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(GTest_DIR ${CMAKE_CURRENT_LIST_DIR}/GoogleTestFromSource CACHE PATH "GoogleTest, built from its sources")
