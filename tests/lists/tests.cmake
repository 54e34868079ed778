ql_test(test_list_core quorlane_core ${CMAKE_CURRENT_LIST_DIR}/ListCoreTest.cpp)
ql_test(test_file_lists quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/FileListsTest.cpp)
