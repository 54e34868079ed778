ql_test(test_preview quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/PreviewPaneTest.cpp)
ql_test(test_preview_nomedia quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/PreviewNoMediaTest.cpp)
