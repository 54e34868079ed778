ql_test(test_compare quorlane_core ${CMAKE_CURRENT_LIST_DIR}/CompareTest.cpp)
add_dependencies(test_compare quorlane)
target_compile_definitions(test_compare PRIVATE QUORLANE_BIN_PATH="$<TARGET_FILE:quorlane>")
