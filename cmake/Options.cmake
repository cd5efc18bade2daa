# Compilers, flags and switches. The top file keeps the architecture.
include(GNUInstallDirs)
include(CheckCXXSourceCompiles)
include(CheckLinkerFlag)

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug, Release, RelWithDebInfo or MinSizeRel" FORCE)
endif()

set(RAVCTL_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=: 'address,undefined' or 'thread'")
option(RAVCTL_COVERAGE "Instrument for llvm-cov (clang only)" OFF)
option(RAVCTL_STATIC "Link the program as one self-contained static-pie file in optimised builds" ON)
option(RAVCTL_BENCH "Build the benchmarks" OFF)
option(RAVCTL_FUZZ "Build the fuzz targets with libFuzzer (clang only)" OFF)

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

find_package(GTest CONFIG QUIET)
if(GTest_FOUND)
  option(RAVCTL_TESTS "Build the tests" ON)
else()
  option(RAVCTL_TESTS "Build the tests" OFF)
  if(NOT RAVCTL_TESTS)
    message(STATUS "ravctl: GoogleTest was not found, tests are off (Debian: apt install libgtest-dev libgmock-dev)")
  endif()
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wcast-qual -Wundef)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
# On 32-bit machines these allow files over 2 GiB and times after 2038.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)

if(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
  set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
endif()

if(RAVCTL_SANITIZE)
  add_compile_options(-fsanitize=${RAVCTL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -g -O1)
  add_link_options(-fsanitize=${RAVCTL_SANITIZE})
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong -ffunction-sections -fdata-sections)
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack -Wl,--gc-sections)
  # A static-pie program relocates itself at each start. Packed relocations save a sixth of the instructions of a start,
  # and 50 KiB.
  check_linker_flag(CXX -Wl,-z,pack-relative-relocs RAVCTL_CAN_PACK_RELOCATIONS)
  if(RAVCTL_CAN_PACK_RELOCATIONS AND NOT CMAKE_CROSSCOMPILING)
    add_link_options(-Wl,-z,pack-relative-relocs)
  endif()
endif()
if(RAVCTL_COVERAGE)
  # The counters are mapped from the profile, so a process need not write it at its end. A process may be killed,
  # execute another program or call _exit. See the step `coverage` of tools/steps.sh.
  add_compile_options(-fprofile-instr-generate -fprofile-update=atomic -fcoverage-mapping "SHELL:-mllvm -runtime-counter-relocation")
  add_link_options(-fprofile-instr-generate -fprofile-update=atomic -fcoverage-mapping)
endif()

# If the static libraries are installed, the program is one file without dynamic dependencies. If not, CMake says so.
set(RAVCTL_SELF_CONTAINED "")
if(RAVCTL_STATIC AND CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT RAVCTL_SANITIZE AND NOT RAVCTL_COVERAGE)
  set(CMAKE_REQUIRED_FLAGS "-fPIE")
  set(CMAKE_REQUIRED_LINK_OPTIONS -static-pie)
  check_cxx_source_compiles("#include <string>\nint main(int c, char**) { return std::string(static_cast<unsigned>(c), 'x').size() == 0; }"
                            RAVCTL_CAN_LINK_STATIC_PIE)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(RAVCTL_CAN_LINK_STATIC_PIE)
    set(RAVCTL_SELF_CONTAINED -static-pie)
  else()
    message(STATUS "ravctl: no static libraries here, the program is linked dynamically")
  endif()
endif()
if(NOT RAVCTL_SELF_CONTAINED)
  set(RAVCTL_SELF_CONTAINED -pie)
endif()
