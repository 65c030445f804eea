# The benchmarks as the README runs them, each for a moment (figures are not checked: a
# timed test on a shared machine proves nothing). What breaks here is a benchmark that no
# longer starts, crashes, or no longer drives what it claims to (the daemon, a veth).
# Included from the top-level CMakeLists.txt after every benchmark target exists.
foreach(bench lldp_bench eventloop_bench linux_pam_bench input_bench cli_bench metrics_bench
              snmp_walk_bench nbr_classification_bench
              memory_bench gnmi_model_bench)
  if(TARGET ${bench})
    add_test(NAME BenchSmoke.${bench}
             COMMAND ${bench} --benchmark_min_time=0.001 --benchmark_repetitions=1)
    set_tests_properties(BenchSmoke.${bench} PROPERTIES LABELS bench-smoke TIMEOUT 300)
  endif()
endforeach()
# The switch-sized run against the daemon and lldpd, at a size that takes seconds.
if(TARGET scale_bench)
  add_test(NAME BenchSmoke.scale_bench COMMAND scale_bench)
  set_tests_properties(BenchSmoke.scale_bench PROPERTIES
    LABELS bench-smoke TIMEOUT 300
    ENVIRONMENT "LLDP_SCALE_PORTS=20;LLDP_SCALE_IDLE=2")
endif()
# The floods against the daemon, a few hundred neighbours each.
if(TARGET flood_bench)
  add_test(NAME BenchSmoke.flood_bench COMMAND flood_bench)
  set_tests_properties(BenchSmoke.flood_bench PROPERTIES
    LABELS bench-smoke TIMEOUT 300 FAIL_REGULAR_EXPRESSION "flood check failed"
    ENVIRONMENT "LLDP_FLOOD_AT=0,300;LLDP_FLOOD_WINDOW=200;LLDP_FLOOD_DROPS=500;LLDP_FLOOD_TOTAL=2000;LLDP_FLOOD_PORTS=4;LLDP_FLOOD_LIMIT=500")
endif()
