# The daemon's optional exporters as modules it loads only when their option is given
# (lldp-agent-NAME.so): a daemon without `--gnmi` or `--agentx` never maps gRPC or
# net-snmp's agent library. A module holds its own code (the object files of the
# libraries named, built position-independent) and links the libraries only it needs; the
# framework, the records and whatever else it uses come from the daemon, which exports its
# symbols for them. The daemon finds its modules along its run path: beside it in the
# build tree, in LIBDIR/lldp-agent once installed.
include(GNUInstallDirs)

if(TARGET lldp-agent)
  file(RELATIVE_PATH lldp_module_rpath /prefix/${CMAKE_INSTALL_SBINDIR}
       /prefix/${CMAKE_INSTALL_LIBDIR}/lldp-agent)
  set_target_properties(lldp-agent PROPERTIES ENABLE_EXPORTS ON
                        BUILD_RPATH "\$ORIGIN" INSTALL_RPATH "\$ORIGIN/${lldp_module_rpath}")
endif()

# lldp_agent_module(NAME ENTRY_SOURCE OBJECTS_OF lib... LIBRARIES lib...)
function(lldp_agent_module name entry)
  cmake_parse_arguments(M "" "" "OBJECTS_OF;LIBRARIES;INCLUDES" ${ARGN})
  set(target lldp-agent-${name})
  add_library(${target} MODULE ${entry})
  set_target_properties(${target} PROPERTIES PREFIX "")
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR} ${M_INCLUDES})
  foreach(lib ${M_OBJECTS_OF})
    set_target_properties(${lib} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${lib}>)
  endforeach()
  target_link_libraries(${target} PRIVATE ${M_LIBRARIES})
  add_dependencies(lldp-agent ${target})
  install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/lldp-agent)
endfunction()
