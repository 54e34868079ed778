ql_test(test_report_writer quorlane_core ${CMAKE_CURRENT_LIST_DIR}/ReportWriterTest.cpp)
ql_test(test_output_dialogs quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/OutputDialogsTest.cpp)
