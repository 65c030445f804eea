# SNMP: the LLDP-MIB and its IEEE 802.1, IEEE 802.3 and LLDP-MED extensions served as an
# AgentX subagent through net-snmp's agent library (Debian's libsnmp-dev). Included from
# the top-level CMakeLists.txt; the daemon links it for `--agentx`.
find_library(NETSNMP_LIBRARY netsnmp REQUIRED)
find_library(NETSNMPAGENT_LIBRARY netsnmpagent REQUIRED)

# The MIB tree alone: reads the records, answers GET and GETNEXT (no net-snmp).
add_library(lldp_mib STATIC
  ${PROJECT_SOURCE_DIR}/Snmp/MibTree.cpp
  ${PROJECT_SOURCE_DIR}/Snmp/LldpMibSource.cpp
  ${PROJECT_SOURCE_DIR}/Snmp/LldpMibBase.cpp
  ${PROJECT_SOURCE_DIR}/Snmp/LldpMibExt.cpp
  ${PROJECT_SOURCE_DIR}/Snmp/RemTablesNotifier.cpp
)
target_link_libraries(lldp_mib PUBLIC records)

add_library(snmp_subagent STATIC ${PROJECT_SOURCE_DIR}/Snmp/AgentxSubagent.cpp)
target_link_libraries(snmp_subagent PUBLIC lldp_mib snmp_options ${NETSNMPAGENT_LIBRARY}
                                           ${NETSNMP_LIBRARY})

# The options, which the daemon parses itself; the subagent is the module
# lldp-agent-snmp.so, loaded only for `--agentx`.
add_library(snmp_options STATIC ${PROJECT_SOURCE_DIR}/Snmp/SubagentOptions.cpp)
target_include_directories(snmp_options PUBLIC ${PROJECT_SOURCE_DIR})
if(TARGET lldp-agent)
  target_link_libraries(lldp-agent PRIVATE snmp_options)
  include(${PROJECT_SOURCE_DIR}/cmake/AgentModule.cmake)
  lldp_agent_module(snmp ${PROJECT_SOURCE_DIR}/Daemon/SnmpModule.cpp
                    OBJECTS_OF snmp_subagent lldp_mib
                    LIBRARIES ${NETSNMPAGENT_LIBRARY} ${NETSNMP_LIBRARY})
endif()

# Through a real snmpd in network namespaces (root only; skips without snmpd or lldpd).
if(COMMAND lldp_test AND TARGET lldp-agent)
  lldp_test(snmp_mib_tests ${PROJECT_SOURCE_DIR}/tests/Snmp/MibTreeTest.cpp)
  target_link_libraries(snmp_mib_tests PRIVATE lldp_mib)
  lldp_test(snmp_tests ${PROJECT_SOURCE_DIR}/tests/Snmp/SnmpSubagentTest.cpp)
  target_compile_definitions(snmp_tests PRIVATE LLDP_AGENT="$<TARGET_FILE:lldp-agent>"
                                                LLDP_CLI="")
  add_dependencies(snmp_tests lldp-agent)
endif()

# A GETNEXT walk of lldpRemTable through the MIB tree at 10,000 neighbours (run by hand).
find_package(benchmark QUIET)
if(benchmark_FOUND)
  add_executable(snmp_walk_bench ${PROJECT_SOURCE_DIR}/bench/SnmpWalkBench.cpp)
  target_link_libraries(snmp_walk_bench PRIVATE lldp_mib benchmark::benchmark
                                                benchmark::benchmark_main)
endif()
