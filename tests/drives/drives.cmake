ql_test(test_mount_table quorlane_core ${CMAKE_CURRENT_LIST_DIR}/MountTableTest.cpp)
ql_test(test_drive_pane quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/DrivePaneTest.cpp)
