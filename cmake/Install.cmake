# `cmake --install`: the daemon and the command line, a systemd unit, the man pages and an
# example configuration. Included from the top-level CMakeLists.txt after the programs.
#
#   PREFIX/sbin/lldp-agent, PREFIX/bin/lldp
#   PREFIX/lib/systemd/system/lldp-agent.service, lldp-agent-standby.service
#   PREFIX/lib/sysusers.d/lldp-agent.conf (the user the unit runs the daemon as)
#   PREFIX/share/man/man8/lldp-agent.8, lldp.8, PREFIX/share/man/man5/lldp-agent.conf.5
#   PREFIX/share/bash-completion/completions/lldp, lldp-agent
#   PREFIX/share/doc/lldp-agent/examples/lldp-agent.conf, README.md, docs/
#   SYSCONF/lldp-agent.conf (the example, only when there is no such file yet)
#   SYSCONF/default/lldp-agent (the service's further options, likewise)
#
# SYSCONF is /etc for the prefix /usr, else PREFIX/etc. The unit names the paths the
# programs are installed at, so it is written at install time (`--prefix` may differ from
# the configured prefix).
include(GNUInstallDirs)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
# The daemon tells systemd when it is ready (Type=notify).
target_link_libraries(lldp-agent PRIVATE PkgConfig::SYSTEMD)

install(TARGETS lldp-agent RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS lldp-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.8 ${PROJECT_SOURCE_DIR}/packaging/lldp.8
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.conf.5
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/lldp
              ${PROJECT_SOURCE_DIR}/packaging/completion/lldp-agent
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.conf
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
# The documentation as in the repository: the README and the pages it links to.
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
        FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png")
# Our YANG module, beside the pages that link to it (the gNMI server names it).
install(FILES ${PROJECT_SOURCE_DIR}/yang/lldp-agent-ext.yang DESTINATION ${CMAKE_INSTALL_DOCDIR}/yang)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.sysusers DESTINATION lib/sysusers.d
        RENAME lldp-agent.conf)

set(LLDP_UNIT_TEMPLATE ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.service.in)
set(LLDP_EXAMPLE_CONF ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.conf)
set(LLDP_DEFAULT_FILE ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.default)
install(CODE "
  set(LLDP_UNIT_TEMPLATE \"${LLDP_UNIT_TEMPLATE}\")
  set(LLDP_EXAMPLE_CONF \"${LLDP_EXAMPLE_CONF}\")
  set(LLDP_DEFAULT_FILE \"${LLDP_DEFAULT_FILE}\")
  set(LLDP_SBINDIR \"${CMAKE_INSTALL_SBINDIR}\")
  set(LLDP_UNIT_OUT_DIR \"${CMAKE_CURRENT_BINARY_DIR}/unit\")
")
install(CODE [=[
  set(prefix "${CMAKE_INSTALL_PREFIX}")
  if(prefix STREQUAL "/usr")
    set(sysconf "/etc")
  else()
    set(sysconf "${prefix}/etc")
  endif()
  set(LLDP_AGENT_BIN "${prefix}/${LLDP_SBINDIR}/lldp-agent")
  set(LLDP_SYSCONFDIR "${sysconf}")
  # file(INSTALL) puts DESTDIR in front of a destination itself; EXISTS needs it written.
  # One unit per destination: installs into two trees (a prefix, a package) may run at once.
  string(MD5 tree "$ENV{DESTDIR}${prefix}")
  set(unit "${LLDP_UNIT_OUT_DIR}/${tree}/lldp-agent.service")
  configure_file("${LLDP_UNIT_TEMPLATE}" "${unit}" @ONLY)
  file(INSTALL "${unit}" DESTINATION "${prefix}/lib/systemd/system")
  # The second agent, standby of the running one.
  string(REPLACE ".service.in" "-standby.service.in" standbyTemplate "${LLDP_UNIT_TEMPLATE}")
  set(standbyUnit "${LLDP_UNIT_OUT_DIR}/${tree}/lldp-agent-standby.service")
  configure_file("${standbyTemplate}" "${standbyUnit}" @ONLY)
  file(INSTALL "${standbyUnit}" DESTINATION "${prefix}/lib/systemd/system")
  if(EXISTS "$ENV{DESTDIR}${sysconf}/lldp-agent.conf")
    message(STATUS "Keeping: $ENV{DESTDIR}${sysconf}/lldp-agent.conf")
  else()
    file(INSTALL "${LLDP_EXAMPLE_CONF}" DESTINATION "${sysconf}")
  endif()
  if(NOT EXISTS "$ENV{DESTDIR}${sysconf}/default/lldp-agent")
    file(INSTALL "${LLDP_DEFAULT_FILE}" DESTINATION "${sysconf}/default"
         RENAME lldp-agent)
  endif()
]=])

if(COMMAND lldp_test)
  # The installed tree in a temporary prefix, and the unit through systemd-analyze verify.
  add_test(NAME InstallTree COMMAND ${PROJECT_SOURCE_DIR}/tests/Metrics/InstallTreeTest.sh
                                    ${CMAKE_BINARY_DIR})
endif()
