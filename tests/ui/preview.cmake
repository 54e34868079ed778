ql_test(test_preview quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/PreviewPaneTest.cpp)
# PDF pages are drawn by the program itself, started as the preview's helper.
target_compile_definitions(test_preview PRIVATE QUORLANE_PROGRAM="$<TARGET_FILE:quorlane>")
add_dependencies(test_preview quorlane)
ql_test(test_preview_nomedia quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/PreviewNoMediaTest.cpp)
