list(APPEND QL_CORE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/CommandLine.cpp
  ${CMAKE_CURRENT_LIST_DIR}/CompareRun.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ExplorerEntry.cpp
  ${CMAKE_CURRENT_LIST_DIR}/InstanceStart.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SilentRun.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SingleInstance.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Startup.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TreemapRun.cpp
)
