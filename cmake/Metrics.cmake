# Prometheus metrics served by the daemon (`--metrics`), the `lldp topology` command that
# draws the links from them (or from the local agent), their lab test and the scrape
# benchmark. Included from the top-level CMakeLists.txt after the daemon and the command
# line.
find_package(prometheus-cpp CONFIG REQUIRED)
find_package(CURL REQUIRED)

add_library(metrics STATIC ${PROJECT_SOURCE_DIR}/Daemon/MetricsSnapshot.cpp
            ${PROJECT_SOURCE_DIR}/Daemon/MetricsExporter.cpp)
target_link_libraries(metrics PUBLIC records prometheus-cpp::pull prometheus-cpp::core)
# The exporter is the module lldp-agent-metrics.so, loaded only for `--metrics`.
include(${PROJECT_SOURCE_DIR}/cmake/AgentModule.cmake)
lldp_agent_module(metrics ${PROJECT_SOURCE_DIR}/Daemon/MetricsModule.cpp OBJECTS_OF metrics
                  LIBRARIES prometheus-cpp::pull prometheus-cpp::core)

add_library(topology STATIC ${PROJECT_SOURCE_DIR}/Cli/Topology.cpp)
target_link_libraries(topology PUBLIC framework CURL::libcurl)
target_link_libraries(lldp-cli PRIVATE topology)

if(COMMAND lldp_test)
  # The snapshot taken in slices; and agents, a Prometheus server and a phone in network
  # namespaces (root only; skips without prometheus, promtool or dot).
  lldp_test(metrics_tests ${PROJECT_SOURCE_DIR}/tests/Metrics/MetricsLabTest.cpp
            ${PROJECT_SOURCE_DIR}/tests/Metrics/MetricsSnapshotTest.cpp)
  target_link_libraries(metrics_tests PRIVATE metrics topology)
  target_compile_definitions(metrics_tests PRIVATE LLDP_AGENT="$<TARGET_FILE:lldp-agent>"
                                                   LLDP_CLI="$<TARGET_FILE:lldp-cli>")
  add_dependencies(metrics_tests lldp-agent lldp-cli)
endif()

# How long a scrape of 100,000 neighbours holds the loop (run by hand, see the README).
if(TARGET benchmark::benchmark)
  add_executable(metrics_bench ${PROJECT_SOURCE_DIR}/bench/MetricsBench.cpp)
  target_link_libraries(metrics_bench PRIVATE metrics benchmark::benchmark)
endif()
