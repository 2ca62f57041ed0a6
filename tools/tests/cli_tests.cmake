# Tests that run the built program: one CTest test per line of cli_cases.txt,
# plus unit tests of the program's own pieces.
set(VEXA_CLI_CASES ${CMAKE_CURRENT_LIST_DIR}/cli_cases.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VEXA_CLI_CASES})
# Only the case names are taken out here: the case lines hold brackets,
# which CMake's list splitting would not leave alone.
file(READ ${VEXA_CLI_CASES} vexa_cli_cases_text)
string(REGEX MATCHALL "(^|\n)[a-z0-9_]+[ \t]*::" vexa_cli_case_heads "${vexa_cli_cases_text}")
foreach(head ${vexa_cli_case_heads})
  string(REGEX MATCH "[a-z0-9_]+" case_name "${head}")
  if(CMAKE_CROSSCOMPILING AND case_name STREQUAL "install_and_package")
    add_test(NAME cli.${case_name} COMMAND ${CMAKE_COMMAND} -E echo
      "skipped: runs the installed and the packaged command on this machine, which cannot run a cross-built one")
    set_tests_properties(cli.${case_name} PROPERTIES SKIP_REGULAR_EXPRESSION "skipped: ")
    continue()
  endif()
  add_test(NAME cli.${case_name}
    COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/run_cli_case.sh $<TARGET_FILE:vexa_cli> ${VEXA_CLI_CASES}
            ${case_name} ${PROJECT_SOURCE_DIR})
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " vexa_emulator_words)
    set_tests_properties(cli.${case_name} PROPERTIES ENVIRONMENT "VEXA_EMULATOR=${vexa_emulator_words}")
  endif()
endforeach()

include(${PROJECT_SOURCE_DIR}/cmake/VexaGTest.cmake)
add_executable(test_cli_units ${CMAKE_CURRENT_LIST_DIR}/test_cli_units.cpp)
target_link_libraries(test_cli_units PRIVATE vexa_cli_core GTest::gtest GTest::gtest_main)
target_compile_options(test_cli_units PRIVATE -Wall -Wextra)
if(WIN32)
  target_sources(test_cli_units PRIVATE ${PROJECT_SOURCE_DIR}/tests/binary_stdout.cpp)
endif()
gtest_discover_tests(test_cli_units DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT ${VEXA_DISCOVERY_TIMEOUT})
