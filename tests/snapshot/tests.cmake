ql_test(test_snapshot quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/SnapshotTest.cpp)
add_dependencies(test_snapshot quorlane)
target_compile_definitions(test_snapshot PRIVATE QUORLANE_BIN_PATH="$<TARGET_FILE:quorlane>")
