ql_test(test_profile quorlane_core ${CMAKE_CURRENT_LIST_DIR}/ProfileTest.cpp)
ql_test(test_settings quorlane_core ${CMAKE_CURRENT_LIST_DIR}/SettingsTest.cpp)
ql_test(test_logs quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/LogsTest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../TestApp.h)
