# How the code of tests is compiled, and how CTest learns of the tests.

# What tests write on the machine while they run: inside the private host no other folder of the build can be written.
set(RAVCTL_MADE ${CMAKE_BINARY_DIR}/made)
file(MAKE_DIRECTORY ${RAVCTL_MADE})

# For the targets of a folder, and of those below, that only test: nothing about them is measured. The product that is
# linked into them is compiled as users get it.
macro(compile_quickly)
  add_compile_options(-O0 -U_FORTIFY_SOURCE)
  # As the compiler does it by default, in programs and other targets alike, so that precompiled headers fit all of them.
  set(CMAKE_POSITION_INDEPENDENT_CODE)
endmacro()

# Code in a header without a source is compiled with the tests beside it alone, so there as users get it.
function(optimise_tests_of_headers)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_CROSSCOMPILING)
    return()
  endif()
  foreach(source IN LISTS ARGN)
    string(REGEX REPLACE "_test\\.cpp$" "" tested ${source})
    if(EXISTS ${tested}.h AND NOT EXISTS ${tested}.cpp)
      set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "-O2;-D_FORTIFY_SOURCE=2"
        SKIP_PRECOMPILE_HEADERS ON)
    endif()
  endforeach()
endfunction()

# register_tests(PROGRAM [SINGLY] [TIMEOUT SECONDS] [COST N]): CTest gets an entry for each suite of the program, or with
# SINGLY for each test, under that name; the program is asked for them when CTest starts. A suite whose name ends in
# "Long" has the label `long`. Entries of a higher cost start earlier.
# Each entry leaves GoogleTest's report in made/results, and tools/counts.awk counts the single tests from there.
function(register_tests program)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SINGLY" "TIMEOUT;COST" "")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  if(NOT arg_COST)
    set(arg_COST 0)
  endif()
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${program}.tests.cmake)
  file(GENERATE OUTPUT ${file} CONTENT "include([[${CMAKE_SOURCE_DIR}/cmake/ListTests.cmake]])
list_tests([[$<TARGET_FILE:${program}>]] [[${CMAKE_CROSSCOMPILING_EMULATOR}]] [[${RAVCTL_MADE}/results]] ${arg_SINGLY} ${arg_TIMEOUT} ${arg_COST})
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${file})
endfunction()
