ql_test(test_update_http quorlane_core ${CMAKE_CURRENT_LIST_DIR}/HttpClientTest.cpp)
ql_test(test_update_dialog quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/frmInternetUpdateTest.cpp)
