ql_test(test_report_tree quorlane_core ${CMAKE_CURRENT_LIST_DIR}/ReportTreeTest.cpp)
ql_test(test_size_format quorlane_core ${CMAKE_CURRENT_LIST_DIR}/SizeFormatTest.cpp)
ql_test(test_report_model quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/ReportModelTest.cpp)
ql_test(test_report_view quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/ReportViewTest.cpp)
