ql_test(test_report_writer quorlane_core ${CMAKE_CURRENT_LIST_DIR}/ReportWriterTest.cpp)
