ql_test(test_json_import quorlane_core ${CMAKE_CURRENT_LIST_DIR}/JsonImportTest.cpp)
ql_test(test_json_command_line quorlane_core ${CMAKE_CURRENT_LIST_DIR}/JsonCommandLineTest.cpp)
add_dependencies(test_json_command_line quorlane)
target_compile_definitions(test_json_command_line PRIVATE QUORLANE_BIN_PATH="$<TARGET_FILE:quorlane>")
