ql_test(test_options quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/OptionsTest.cpp)
