list(APPEND QL_CORE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/Compare.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReportCommands.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReportEdit.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReportTree.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SizeFormat.cpp
)
