# The command line `lldp` and the daemon's side of it (views, neighbour watch, the
# show/clear/watch operations), with their tests. Included from the top-level
# CMakeLists.txt after the daemon.

add_library(cli_service STATIC ${PROJECT_SOURCE_DIR}/Daemon/CliViews.cpp
            ${PROJECT_SOURCE_DIR}/Daemon/NeighborWatch.cpp ${PROJECT_SOURCE_DIR}/Daemon/CliService.cpp
            ${PROJECT_SOURCE_DIR}/Daemon/NbrClassificationWatch.cpp
            ${PROJECT_SOURCE_DIR}/Daemon/PowerView.cpp ${PROJECT_SOURCE_DIR}/Daemon/PowerAgentService.cpp
            ${PROJECT_SOURCE_DIR}/Daemon/RedundancyView.cpp)
target_link_libraries(cli_service PUBLIC control_socket records)
if(TARGET lldp-agent)
  target_link_libraries(lldp-agent PRIVATE cli_service)
endif()

add_library(cli_text STATIC ${PROJECT_SOURCE_DIR}/Cli/CliText.cpp
            ${PROJECT_SOURCE_DIR}/Cli/RedundancyText.cpp)
target_link_libraries(cli_text PUBLIC framework)

# The target is lldp-cli (`lldp` names the protocol library); the program is `lldp`.
add_executable(lldp-cli ${PROJECT_SOURCE_DIR}/Cli/LldpCliMain.cpp)
set_target_properties(lldp-cli PROPERTIES OUTPUT_NAME lldp)
target_link_libraries(lldp-cli PRIVATE cli_text control_socket)

if(COMMAND lldp_test)
  # The daemons' end-to-end test drives them through the command line.
  foreach(t daemon_tests timing_tests)
    target_compile_definitions(${t} PRIVATE LLDP_CLI="$<TARGET_FILE:lldp-cli>")
    add_dependencies(${t} lldp-cli)
  endforeach()
  file(GLOB CLI_TESTS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/Cli/*Test.cpp
       ${PROJECT_SOURCE_DIR}/tests/Daemon/CliServiceTest.cpp)
  if(CLI_TESTS)
    lldp_test(cli_tests ${CLI_TESTS})
    target_link_libraries(cli_tests PRIVATE cli_service cli_text)
    # The shell completion asks the programs themselves for their keywords and options.
    target_compile_definitions(cli_tests PRIVATE LLDP_CLI="$<TARGET_FILE:lldp-cli>"
                                                 LLDP_AGENT="$<TARGET_FILE:lldp-agent>")
    add_dependencies(cli_tests lldp-cli lldp-agent)
  endif()
endif()

# `show neighbors` over 100,000 neighbours (run by hand, see docs/performance.md).
find_package(benchmark QUIET)
if(benchmark_FOUND)
  add_executable(cli_bench ${PROJECT_SOURCE_DIR}/bench/CliBench.cpp)
  target_link_libraries(cli_bench PRIVATE cli_service cli_text benchmark::benchmark
                                          benchmark::benchmark_main)
endif()
