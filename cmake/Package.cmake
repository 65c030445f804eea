# The Debian package, lldp-agent_VERSION_ARCH.deb, made by CPack from what `cmake --install`
# puts in /usr and /etc (`cpack -G DEB` in the build directory, or the `package` target).
# Its runtime dependencies are those dpkg-shlibdeps finds in the programs; its maintainer
# scripts and conffiles are in packaging/debian. Included from the top-level
# CMakeLists.txt after every install rule; with the tests of the manual pages and docs.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lldp-agent)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "lldp-agent maintainers <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "LLDP (IEEE 802.1AB) agent for Linux switches and hosts")
set(CPACK_PACKAGE_DESCRIPTION
    "Advertises the system to its neighbours and keeps the table of the neighbours it hears, \
with IEEE 802.1, IEEE 802.3 and LLDP-MED TLVs, a command line, SNMP (AgentX) and \
Prometheus metrics.")
# Installed as the package installs: prefix /usr, configuration in /etc, under DESTDIR.
set(CPACK_SET_DESTDIR ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# `lldp topology --format svg|png` runs Graphviz; the unit needs systemd only to run.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "graphviz, snmpd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

if(COMMAND lldp_test)
  # Every option, command and configuration line in the manual pages.
  add_executable(config_usages ${PROJECT_SOURCE_DIR}/tests/Packaging/ConfigUsages.cpp)
  target_link_libraries(config_usages PRIVATE config_language)
  add_test(NAME ManPages
           COMMAND ${PROJECT_SOURCE_DIR}/tests/Packaging/ManPagesTest.sh ${PROJECT_SOURCE_DIR}
                   $<TARGET_FILE:lldp-agent> $<TARGET_FILE:lldp-cli> $<TARGET_FILE:config_usages>)
  # The README as a landing page, the pages under docs/ and their links and picture.
  add_test(NAME Docs COMMAND ${PROJECT_SOURCE_DIR}/tests/Packaging/DocsTest.sh ${PROJECT_SOURCE_DIR})
  # The package built, installed on this machine, run and removed (root only).
  add_test(NAME Package COMMAND ${PROJECT_SOURCE_DIR}/tests/Packaging/PackageTest.sh
                                ${CMAKE_BINARY_DIR})
  set_tests_properties(Package PROPERTIES LABELS package RESOURCE_LOCK installed-package)
endif()
