ql_test(test_splitter quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/SplitterTest.cpp)
