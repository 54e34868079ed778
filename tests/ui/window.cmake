ql_test(test_main_window quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/MainWindowTest.cpp)
ql_test(test_scan_session quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/ScanSessionTest.cpp)
ql_test(test_treemap_pane quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/TreemapPaneTest.cpp)
ql_test(test_compare_view quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/CompareViewTest.cpp)
