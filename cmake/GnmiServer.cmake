# The gNMI server of `lldp-agent --gnmi`: the protocol's messages generated from our
# Gnmi/gnmi.proto (protoc and grpc_cpp_plugin, Debian's protobuf-compiler and
# protobuf-compiler-grpc), the server on gRPC's callback API (libgrpc++-dev), and its
# end-to-end tests through Python's gRPC (python3-grpcio). Included from the top-level
# CMakeLists.txt after the daemon target and, unless already added, the model library (Gnmi/CMakeLists.txt).
#
# LLDP_GNMI is on by default and turns itself off, with a note, when gRPC is not found:
# the rest of the agent builds without it.
if(NOT TARGET lldp_gnmi_model AND EXISTS ${PROJECT_SOURCE_DIR}/Gnmi/CMakeLists.txt)
  add_subdirectory(${PROJECT_SOURCE_DIR}/Gnmi ${PROJECT_BINARY_DIR}/Gnmi)
endif()

option(LLDP_GNMI "Build the gNMI server into lldp-agent (needs gRPC and protobuf)" ON)
set(LLDP_GNMI_BUILD ${LLDP_GNMI})
if(LLDP_GNMI_BUILD)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(GRPCPP IMPORTED_TARGET grpc++)
  pkg_check_modules(PROTOBUF IMPORTED_TARGET protobuf)
  find_program(LLDP_PROTOC protoc)
  find_program(LLDP_GRPC_CPP_PLUGIN grpc_cpp_plugin)
  if(NOT GRPCPP_FOUND OR NOT PROTOBUF_FOUND OR NOT LLDP_PROTOC OR NOT LLDP_GRPC_CPP_PLUGIN
     OR NOT TARGET lldp_gnmi_model)
    message(STATUS "gNMI server left out: gRPC, protobuf, protoc or grpc_cpp_plugin not found "
                   "(Debian: libgrpc++-dev protobuf-compiler-grpc libprotobuf-dev protobuf-compiler)")
    set(LLDP_GNMI_BUILD OFF)
  endif()
endif()

if(LLDP_GNMI_BUILD)
  # Generated code in one library of its own, compiled without warnings (it is not ours).
  set(GNMI_GEN_DIR ${PROJECT_BINARY_DIR}/gnmi-gen)
  set(GNMI_GEN ${GNMI_GEN_DIR}/Gnmi/gnmi.pb.cc ${GNMI_GEN_DIR}/Gnmi/gnmi.pb.h
               ${GNMI_GEN_DIR}/Gnmi/gnmi.grpc.pb.cc ${GNMI_GEN_DIR}/Gnmi/gnmi.grpc.pb.h)
  add_custom_command(
    OUTPUT ${GNMI_GEN}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${GNMI_GEN_DIR}
    COMMAND ${LLDP_PROTOC} -I ${PROJECT_SOURCE_DIR} --cpp_out=${GNMI_GEN_DIR}
            --grpc_out=${GNMI_GEN_DIR} --plugin=protoc-gen-grpc=${LLDP_GRPC_CPP_PLUGIN}
            Gnmi/gnmi.proto
    DEPENDS ${PROJECT_SOURCE_DIR}/Gnmi/gnmi.proto
    COMMENT "Generating the gNMI messages and service")
  add_library(gnmi_proto STATIC ${GNMI_GEN_DIR}/Gnmi/gnmi.pb.cc ${GNMI_GEN_DIR}/Gnmi/gnmi.grpc.pb.cc)
  target_include_directories(gnmi_proto SYSTEM PUBLIC ${GNMI_GEN_DIR})
  target_compile_options(gnmi_proto PRIVATE -w)
  target_link_libraries(gnmi_proto PUBLIC PkgConfig::GRPCPP PkgConfig::PROTOBUF)

  add_library(gnmi_server STATIC
    ${PROJECT_SOURCE_DIR}/Gnmi/CrossThreadQueue.cpp
    ${PROJECT_SOURCE_DIR}/Gnmi/GnmiProto.cpp
    ${PROJECT_SOURCE_DIR}/Gnmi/GnmiTls.cpp
    ${PROJECT_SOURCE_DIR}/Gnmi/GnmiServer.cpp
    ${PROJECT_SOURCE_DIR}/Gnmi/GnmiSubscribeOutbox.cpp
    ${PROJECT_SOURCE_DIR}/Gnmi/GnmiSubscribeStream.cpp
    ${PROJECT_SOURCE_DIR}/Gnmi/GnmiSubscribeSession.cpp
  )
  target_link_libraries(gnmi_server PUBLIC lldp_gnmi_model gnmi_options gnmi_proto framework)
endif()

# The options are parsed in every build, so a build without gRPC refuses them by name.
add_library(gnmi_options STATIC ${PROJECT_SOURCE_DIR}/Gnmi/GnmiOptions.cpp)
target_include_directories(gnmi_options PUBLIC ${PROJECT_SOURCE_DIR})

if(TARGET lldp-agent)
  target_link_libraries(lldp-agent PRIVATE gnmi_options)
  if(LLDP_GNMI_BUILD)
    include(${PROJECT_SOURCE_DIR}/cmake/AgentModule.cmake)
    lldp_agent_module(gnmi ${PROJECT_SOURCE_DIR}/Daemon/GnmiModule.cpp
                      OBJECTS_OF gnmi_server gnmi_proto lldp_gnmi_model
                      LIBRARIES PkgConfig::GRPCPP PkgConfig::PROTOBUF
                      INCLUDES ${GNMI_GEN_DIR})
    target_compile_definitions(lldp-agent PRIVATE LLDP_GNMI=1)
  endif()
endif()

# A slow subscriber's queue: merging per neighbour and the bound.
if(LLDP_GNMI_BUILD AND COMMAND lldp_test)
  lldp_test(gnmi_server_tests ${PROJECT_SOURCE_DIR}/tests/Gnmi/GnmiSubscribeOutboxTest.cpp)
  target_link_libraries(gnmi_server_tests PRIVATE gnmi_server)
endif()

# End to end: lldp-agent with --gnmi against lldpd over veth in namespaces, read and
# written by a Python gNMI client whose stubs are generated from the same .proto (root
# only; skips without lldpd or python3-grpcio).
find_program(LLDP_GRPC_PYTHON_PLUGIN grpc_python_plugin)
if(LLDP_GNMI_BUILD AND LLDP_GRPC_PYTHON_PLUGIN AND TARGET lldp-agent AND COMMAND lldp_test)
  set(GNMI_PY_DIR ${PROJECT_BINARY_DIR}/gnmi-py)
  add_custom_command(
    OUTPUT ${GNMI_PY_DIR}/Gnmi/gnmi_pb2.py ${GNMI_PY_DIR}/Gnmi/gnmi_pb2_grpc.py
    COMMAND ${CMAKE_COMMAND} -E make_directory ${GNMI_PY_DIR}
    COMMAND ${LLDP_PROTOC} -I ${PROJECT_SOURCE_DIR} --python_out=${GNMI_PY_DIR}
            --grpc_python_out=${GNMI_PY_DIR}
            --plugin=protoc-gen-grpc_python=${LLDP_GRPC_PYTHON_PLUGIN} Gnmi/gnmi.proto
    DEPENDS ${PROJECT_SOURCE_DIR}/Gnmi/gnmi.proto
    COMMENT "Generating the Python gNMI client stubs")
  add_custom_target(gnmi_python_stubs ALL
                    DEPENDS ${GNMI_PY_DIR}/Gnmi/gnmi_pb2.py ${GNMI_PY_DIR}/Gnmi/gnmi_pb2_grpc.py)
  lldp_test(gnmi_tests ${PROJECT_SOURCE_DIR}/tests/Gnmi/GnmiEndToEndTest.cpp)
  target_link_libraries(gnmi_tests PRIVATE control_socket)
  target_compile_definitions(gnmi_tests PRIVATE LLDP_AGENT="$<TARGET_FILE:lldp-agent>"
                             GNMI_PY_DIR="${GNMI_PY_DIR}" LLDP_CLI=""
                             GNMI_CLIENT="${PROJECT_SOURCE_DIR}/tests/Gnmi/gnmi_client.py")
  add_dependencies(gnmi_tests lldp-agent gnmi_python_stubs)
endif()

# The server's costs measured through the running daemon (needs root; see docs/gnmi.md):
# an LLDPDU to its notification, the initial sync of a large table, and the receive path's
# cost per frame with a hundred subscribers. Run once briefly with the other benchmarks.
find_package(benchmark QUIET)
if(LLDP_GNMI_BUILD AND benchmark_FOUND AND TARGET lldp-agent)
  add_executable(gnmi_bench ${PROJECT_SOURCE_DIR}/bench/GnmiBench.cpp)
  target_link_libraries(gnmi_bench PRIVATE gnmi_proto test_support benchmark::benchmark
                                           benchmark::benchmark_main)
  target_compile_definitions(gnmi_bench PRIVATE LLDP_AGENT="$<TARGET_FILE:lldp-agent>")
  add_dependencies(gnmi_bench lldp-agent)
  if(COMMAND lldp_test)
    add_test(NAME BenchSmoke.gnmi_bench COMMAND gnmi_bench)
    set_tests_properties(BenchSmoke.gnmi_bench PROPERTIES
      LABELS bench-smoke TIMEOUT 300
      ENVIRONMENT "LLDP_GNMI_NEIGHBOURS=200;LLDP_GNMI_SAMPLES=20;LLDP_GNMI_SYNC=500;LLDP_GNMI_REFRESH=500")
  endif()
endif()
