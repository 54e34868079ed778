ql_test(test_command_line quorlane_core ${CMAKE_CURRENT_LIST_DIR}/CommandLineTest.cpp)
ql_test(test_silent_run quorlane_core ${CMAKE_CURRENT_LIST_DIR}/SilentRunTest.cpp)
add_dependencies(test_silent_run quorlane)
target_compile_definitions(test_silent_run PRIVATE QUORLANE_BIN_PATH="$<TARGET_FILE:quorlane>")
