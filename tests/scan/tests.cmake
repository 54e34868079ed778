ql_test(test_folder_walk quorlane_core ${CMAKE_CURRENT_LIST_DIR}/FolderWalkTest.cpp)
