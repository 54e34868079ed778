ql_test(test_treemap quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/TreemapTest.cpp)
add_dependencies(test_treemap quorlane)
target_compile_definitions(test_treemap PRIVATE QUORLANE_BIN_PATH="$<TARGET_FILE:quorlane>")
