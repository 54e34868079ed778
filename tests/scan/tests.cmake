ql_test(test_folder_walk quorlane_core ${CMAKE_CURRENT_LIST_DIR}/FolderWalkTest.cpp)
ql_test(test_rescan quorlane_core ${CMAKE_CURRENT_LIST_DIR}/RescanTest.cpp)
ql_test(test_hostile_walk quorlane_core ${CMAKE_CURRENT_LIST_DIR}/HostileWalkTest.cpp)
ql_test(test_file_delete quorlane_core ${CMAKE_CURRENT_LIST_DIR}/FileDeleteTest.cpp)
