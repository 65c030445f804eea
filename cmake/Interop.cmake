# Interoperation tests: our daemon against lldpd as a black-box peer and tshark as the
# judge of our frames (root only; they skip without lldpd, lldpcli or tshark). Included
# from the top-level CMakeLists.txt after the lldp-agent and lldp-cli targets.
#
# They read our side through the `lldp` command line (target lldp-cli; the target `lldp`
# is the protocol library). LLDP_INTEROP_CLI names another build of it instead.
set(LLDP_INTEROP_CLI "" CACHE FILEPATH "lldp command line for the interop tests (default: target lldp-cli)")

if(COMMAND lldp_test AND TARGET lldp-agent AND (TARGET lldp-cli OR LLDP_INTEROP_CLI))
  lldp_test(interop_tests ${PROJECT_SOURCE_DIR}/tests/Interop/LldpdInteropTest.cpp
            ${PROJECT_SOURCE_DIR}/tests/Interop/LldpdMedInteropTest.cpp)
  target_link_libraries(interop_tests PRIVATE control_socket)
  target_compile_definitions(interop_tests PRIVATE LLDP_AGENT="$<TARGET_FILE:lldp-agent>")
  add_dependencies(interop_tests lldp-agent)
  if(LLDP_INTEROP_CLI)
    target_compile_definitions(interop_tests PRIVATE LLDP_CLI="${LLDP_INTEROP_CLI}")
  else()
    target_compile_definitions(interop_tests PRIVATE LLDP_CLI="$<TARGET_FILE:lldp-cli>")
    add_dependencies(interop_tests lldp-cli)
  endif()
endif()
