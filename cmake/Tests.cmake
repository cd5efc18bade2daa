# How the code of tests is compiled, and how CTest finds the tests.

# The one folder of the build that tests may write in while they run. The other folders are read-only on a private host.
set(RAVCTL_MADE ${CMAKE_BINARY_DIR}/made)
file(MAKE_DIRECTORY ${RAVCTL_MADE})

# Call it in a folder whose targets, and the targets of the folders below, only test. It compiles them without
# optimisation, because nothing measures them. The product that they link keeps the usual flags.
macro(compile_quickly)
  add_compile_options(-O0 -U_FORTIFY_SOURCE)
  # Libraries and programs use the compiler's default here, so that the same precompiled headers fit both.
  set(CMAKE_POSITION_INDEPENDENT_CODE)
endmacro()

# Only the tests beside a header compile its code if the header has no source. So these tests get the flags of the
# release.
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

# register_tests(PROGRAM [SINGLY] [TIMEOUT SECONDS] [COST N]) gives CTest an entry for each suite of the program, or
# with SINGLY for each test. An entry is named PROGRAM/SUITE or PROGRAM/SUITE.TEST and runs as one process. CTest asks
# the program for its tests when CTest starts. A suite whose name ends in "Long" has the label `long`. Entries of a
# higher cost start earlier. Each entry leaves GoogleTest's report in made/results, and tools/count_tests.py counts the
# single tests.
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
