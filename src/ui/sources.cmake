# The window library: panes, the window and its dialogs (WindowMain.cpp is the module's entry).
list(APPEND QL_GUI_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/CommandBar.cpp
  ${CMAKE_CURRENT_LIST_DIR}/CompareBaseline.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Desktop.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DriveModel.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DrivePane.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FileListModel.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FileListPane.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ImportedSources.cpp
  ${CMAKE_CURRENT_LIST_DIR}/MainBar.cpp
  ${CMAKE_CURRENT_LIST_DIR}/MainWindow.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PaneBar.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PdfPage.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PreviewMedia.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PreviewPane.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReportModel.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReportPane.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReportPrinter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ScanSession.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SourcesBox.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PaneFrame.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Splitter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TranslateControls.cpp
  ${CMAKE_CURRENT_LIST_DIR}/WindowState.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/ReportOutputDialog.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/ShowLog.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/cCommonDialog.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/frmFehler.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/frmInfo.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/frmInternetUpdate.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/frmOptionen.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/frmPrint.cpp
  ${CMAKE_CURRENT_LIST_DIR}/dialogs/frmSave.cpp
)
list(APPEND QL_GUI_SOURCES ${CMAKE_CURRENT_LIST_DIR}/../../resources/quorlane_icons.qrc)
