list(APPEND QL_CORE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/FailureReport.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FatalSignals.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SystemInfo.cpp
)
