# The files to install below any prefix and DESTDIR, and the archive that CPack makes. Debian's package is in debian/, the
# recipe of the RPM in packaging/.
install(TARGETS ravctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(PROGRAMS scripts/check_ravctl scripts/ravctl-exit scripts/ravctl-json DESTINATION ${CMAKE_INSTALL_BINDIR})

file(GLOB manuals CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/man/*.[1-8])
foreach(manual IN LISTS manuals)
  string(REGEX REPLACE ".*\\." "" section ${manual})
  install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

# The folders where the shells look for completions. zsh has no folder that all systems know.
set(RAVCTL_ZSH_FOLDER ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions CACHE STRING "Where zsh finds completions")
install(FILES completions/ravctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ravctl)
install(FILES completions/_ravctl DESTINATION ${RAVCTL_ZSH_FOLDER})
install(FILES completions/ravctl.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
# bash and fish look for a file named after the command; zsh reads the names in the first line of its file.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/completions/bash ${CMAKE_BINARY_DIR}/completions/fish)
foreach(name ravctl-exit ravctl-json)
  file(CREATE_LINK ravctl ${CMAKE_BINARY_DIR}/completions/bash/${name} SYMBOLIC)
  file(CREATE_LINK ravctl.fish ${CMAKE_BINARY_DIR}/completions/fish/${name}.fish SYMBOLIC)
endforeach()
install(DIRECTORY ${CMAKE_BINARY_DIR}/completions/bash/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(DIRECTORY ${CMAKE_BINARY_DIR}/completions/fish/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

install(FILES README.md SECURITY.md docs/bug-report.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME changelog)
install(FILES docs/architecture.md docs/interleavings.md docs/logging.md docs/performance.md
  docs/reliability.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(PROGRAMS docs/examples/ravctl-metrics docs/examples/zuv-sendbundle.sh packaging/examples/hip.init
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES docs/examples/README.md docs/examples/hip.logrotate docs/examples/hip.service
  docs/examples/ravctl-metrics.service docs/examples/ravctl-metrics.timer DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY docs/examples/ansible DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# It is not in force there; an administrator copies it (see its first lines).
install(FILES packaging/apparmor/usr.bin.ravctl DESTINATION ${CMAKE_INSTALL_DATADIR}/apparmor/extra-profiles)

set(CPACK_GENERATOR TGZ)
set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
