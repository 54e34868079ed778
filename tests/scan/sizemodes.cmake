ql_test(test_size_modes quorlane_core ${CMAKE_CURRENT_LIST_DIR}/SizeModesTest.cpp)
add_dependencies(test_size_modes quorlane)
target_compile_definitions(test_size_modes PRIVATE QUORLANE_BIN_PATH="$<TARGET_FILE:quorlane>")
