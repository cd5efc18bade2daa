# CTest reads this file when it starts (see register_tests in Tests.cmake). It asks a test program for its tests.

function(list_tests program emulator results singly timeout cost)
  cmake_path(GET program FILENAME name)
  if(NOT EXISTS ${program})
    add_test(${name}_NOT_BUILT ${program})
    return()
  endif()
  execute_process(COMMAND ${emulator} ${program} --gtest_list_tests OUTPUT_VARIABLE lines RESULT_VARIABLE status
    ERROR_VARIABLE complaints TIMEOUT 60)
  if(NOT status EQUAL 0)
    # This entry fails, too, and its output shows the reason.
    add_test(${name}_LISTS_ITS_TESTS ${emulator} ${program} --gtest_list_tests)
    return()
  endif()

  # A line without indentation names a suite, ends with a dot, and may have a comment. The tests of the suite follow it.
  string(REPLACE ";" "," lines "${lines}")
  string(REGEX REPLACE " +#[^\n]*" "" lines "${lines}")
  string(REPLACE "\n" ";" lines "${lines}")
  foreach(line IN LISTS lines)
    if(line MATCHES "^([^ ]+)\\.$")
      set(suite ${CMAKE_MATCH_1})
      if(NOT singly)
        list_test(${suite} ${suite}.*)
      endif()
    elseif(singly AND line MATCHES "^  ([^ ]+)$")
      list_test(${suite}.${CMAKE_MATCH_1} ${suite}.${CMAKE_MATCH_1})
    endif()
  endforeach()
endfunction()

macro(list_test suite_or_test filter)
  set(entry ${name}/${suite_or_test})
  string(REPLACE "/" "-" file ${entry})
  add_test(${entry} ${emulator} ${program} --gtest_filter=${filter})
  set_tests_properties(${entry} PROPERTIES ENVIRONMENT GTEST_OUTPUT=xml:${results}/${file}.xml
    TIMEOUT ${timeout} COST ${cost})
  if(suite MATCHES "Long$")
    set_tests_properties(${entry} PROPERTIES LABELS long TIMEOUT 1800)
  endif()
endmacro()
