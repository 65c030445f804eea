# The configuration language and the daemon's control socket, with their tests. Included
# from the top-level CMakeLists.txt after the tests directory, whose lldp_test() it uses.

add_library(config_language STATIC ${PROJECT_SOURCE_DIR}/Config/ConfigLanguage.cpp
                                   ${PROJECT_SOURCE_DIR}/Config/ConfigWords.cpp
                                   ${PROJECT_SOURCE_DIR}/Config/ConfigCoreForms.cpp
                                   ${PROJECT_SOURCE_DIR}/Config/ConfigTlvAndBypass.cpp
                                   ${PROJECT_SOURCE_DIR}/Config/ConfigNeighborLimit.cpp
                                   ${PROJECT_SOURCE_DIR}/Config/ConfigClassification.cpp
                                   ${PROJECT_SOURCE_DIR}/Config/NetworkPolicyLanguage.cpp)
target_link_libraries(config_language PUBLIC records)

add_library(control_socket STATIC ${PROJECT_SOURCE_DIR}/Daemon/ControlSocket.cpp)
target_link_libraries(control_socket PUBLIC config_language)

if(COMMAND lldp_test)
  file(GLOB CONFIG_TESTS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/Config/*Test.cpp)
  lldp_test(config_tests ${CONFIG_TESTS})
  target_link_libraries(config_tests PRIVATE config_language)

  lldp_test(control_socket_tests ${PROJECT_SOURCE_DIR}/tests/Daemon/ControlSocketTest.cpp)
  target_link_libraries(control_socket_tests PRIVATE control_socket)
endif()
