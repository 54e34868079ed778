list(APPEND QL_GUI_SOURCES ${CMAKE_CURRENT_LIST_DIR}/MainWindow.cpp ${CMAKE_CURRENT_LIST_DIR}/WindowState.cpp ${CMAKE_CURRENT_LIST_DIR}/ReportPane.cpp ${CMAKE_CURRENT_LIST_DIR}/CommandBar.cpp ${CMAKE_CURRENT_LIST_DIR}/Splitter.cpp ${CMAKE_CURRENT_LIST_DIR}/FileListPane.cpp ${CMAKE_CURRENT_LIST_DIR}/ImportedSources.cpp)
list(APPEND QL_GUI_SOURCES ${CMAKE_CURRENT_LIST_DIR}/PreviewPane.cpp ${CMAKE_CURRENT_LIST_DIR}/PreviewMedia.cpp)
list(APPEND QL_GUI_SOURCES ${CMAKE_CURRENT_LIST_DIR}/frmOptionen.cpp ${CMAKE_CURRENT_LIST_DIR}/frmInfo.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../../resources/quorlane_icons.qrc)
