# `cmake --install`: the daemon and the command line, a systemd unit, the man pages and an
# example configuration. Included from the top-level CMakeLists.txt after the programs.
#
#   PREFIX/sbin/lldp-agent, PREFIX/bin/lldp
#   PREFIX/lib/systemd/system/lldp-agent.service
#   PREFIX/share/man/man8/lldp-agent.8, lldp.8
#   PREFIX/share/doc/lldp-agent/examples/lldp-agent.conf
#   PREFIX/share/bash-completion/completions/lldp, lldp-agent
#   SYSCONF/lldp-agent.conf (the example, only when there is no such file yet)
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
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.conf
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/lldp
              ${PROJECT_SOURCE_DIR}/packaging/completion/lldp-agent
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

set(LLDP_UNIT_TEMPLATE ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.service.in)
set(LLDP_EXAMPLE_CONF ${PROJECT_SOURCE_DIR}/packaging/lldp-agent.conf)
install(CODE "
  set(LLDP_UNIT_TEMPLATE \"${LLDP_UNIT_TEMPLATE}\")
  set(LLDP_EXAMPLE_CONF \"${LLDP_EXAMPLE_CONF}\")
  set(LLDP_SBINDIR \"${CMAKE_INSTALL_SBINDIR}\")
  set(LLDP_UNIT_OUT \"${CMAKE_CURRENT_BINARY_DIR}/lldp-agent.service\")
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
  configure_file("${LLDP_UNIT_TEMPLATE}" "${LLDP_UNIT_OUT}" @ONLY)
  file(INSTALL "${LLDP_UNIT_OUT}" DESTINATION "$ENV{DESTDIR}${prefix}/lib/systemd/system")
  if(EXISTS "$ENV{DESTDIR}${sysconf}/lldp-agent.conf")
    message(STATUS "Keeping: $ENV{DESTDIR}${sysconf}/lldp-agent.conf")
  else()
    file(INSTALL "${LLDP_EXAMPLE_CONF}" DESTINATION "$ENV{DESTDIR}${sysconf}")
  endif()
]=])

if(COMMAND lldp_test)
  # The installed tree in a temporary prefix, and the unit through systemd-analyze verify.
  add_test(NAME InstallTree COMMAND ${PROJECT_SOURCE_DIR}/tests/Metrics/InstallTreeTest.sh
                                    ${CMAKE_BINARY_DIR})
endif()
