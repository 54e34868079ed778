ql_test(test_string_collection quorlane_core ${CMAKE_CURRENT_LIST_DIR}/StringCollectionTest.cpp)
