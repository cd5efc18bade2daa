# The component `dev`: the library and its headers, for programs of other projects. An installation without the name of
# a component leaves it out, and so do the packages.
#
#   cmake --install build/release --component dev
include(CMakePackageConfigHelpers)

# These folders and the lower ones are for other programs.
set(HIGHEST_PUBLIC_FOLDER log/output)

set_target_properties(ravctl_core PROPERTIES OUTPUT_NAME ravctl EXPORT_NAME ravctl)
target_include_directories(ravctl_core INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/ravctl>)
target_compile_features(ravctl_core INTERFACE cxx_std_17)
# The types of the library have the same sizes in the program that uses it.
target_compile_definitions(ravctl_core INTERFACE $<INSTALL_INTERFACE:_FILE_OFFSET_BITS=64>
                                                 $<INSTALL_INTERFACE:_TIME_BITS=64>)

# install_dev(FILES... DESTINATION FOLDER)
function(install_dev)
  install(FILES ${ARGN} COMPONENT dev EXCLUDE_FROM_ALL)
endfunction()

set(DEV_FILES "")
foreach(folder IN LISTS folders)
  file(GLOB headers CONFIGURE_DEPENDS src/${folder}/*.h)
  install_dev(${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ravctl/${folder})
  list(APPEND DEV_FILES ${headers})
  if(folder STREQUAL HIGHEST_PUBLIC_FOLDER)
    break()
  endif()
endforeach()

install(TARGETS ravctl_core EXPORT ravctlTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev EXCLUDE_FROM_ALL)

# find_package(ravctl) finds these. Minor versions may differ in their headers.
set(cmake_files ${CMAKE_INSTALL_LIBDIR}/cmake/ravctl)
install(EXPORT ravctlTargets NAMESPACE ravctl:: DESTINATION ${cmake_files} COMPONENT dev EXCLUDE_FROM_ALL)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/dev/ravctlConfigVersion.cmake COMPATIBILITY SameMinorVersion)
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/dev/ravctlConfig.cmake @ONLY CONTENT [[
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/ravctlTargets.cmake)
]])
install_dev(${CMAKE_BINARY_DIR}/dev/ravctlConfig.cmake ${CMAKE_BINARY_DIR}/dev/ravctlConfigVersion.cmake
            DESTINATION ${cmake_files})

# pkg-config derives the prefix from the place of this file, as CMake does, so that the installed tree can be moved.
file(RELATIVE_PATH way_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/dev/ravctl.pc @ONLY CONTENT [[
prefix=${pcfiledir}/@way_to_prefix@

Name: ravctl
Description: log, JSON and file library of ravctl
Version: @PROJECT_VERSION@
Cflags: -I${prefix}/@CMAKE_INSTALL_INCLUDEDIR@/ravctl -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64
Libs: -L${prefix}/@CMAKE_INSTALL_LIBDIR@ -lravctl -pthread
]])
install_dev(${CMAKE_BINARY_DIR}/dev/ravctl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(example examples/logging/CMakeLists.txt examples/logging/logging_example.cpp)
install_dev(${example} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/logging)
list(APPEND DEV_FILES ${example})

# The tests build the example against this installation.
set(DEV_PREFIX ${CMAKE_BINARY_DIR}/dev/prefix)
list(TRANSFORM DEV_FILES PREPEND ${CMAKE_SOURCE_DIR}/ REGEX "^examples")
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/dev/complete
  COMMAND ${CMAKE_COMMAND} -E remove_directory ${DEV_PREFIX}
  COMMAND ${CMAKE_COMMAND} --install ${CMAKE_BINARY_DIR} --component dev --prefix ${DEV_PREFIX} >/dev/null
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/dev/complete
  DEPENDS ravctl_core ${DEV_FILES} ${CMAKE_BINARY_DIR}/cmake_install.cmake
  COMMENT "Installing the component dev for its tests")
add_custom_target(installed-dev DEPENDS ${CMAKE_BINARY_DIR}/dev/complete)
