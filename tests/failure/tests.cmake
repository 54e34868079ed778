ql_test(failure_test quorlane_core
  ${CMAKE_CURRENT_LIST_DIR}/SystemInfoTest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FailureReportTest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FatalSignalsTest.cpp)
ql_test(failure_dialog_test quorlane_gui ${CMAKE_CURRENT_LIST_DIR}/frmFehlerTest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../TestApp.h)
