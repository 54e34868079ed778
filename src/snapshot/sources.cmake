list(APPEND QL_CORE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/SnapshotFeed.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SnapshotKeeper.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SnapshotStore.cpp
)
