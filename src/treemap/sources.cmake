# The treemap and the file-types table: data, layout and table in the core, the painting in the
# window's library.
list(APPEND QL_CORE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/FileKind.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TreemapData.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TreemapGrowth.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TreemapLayout.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TypesTable.cpp
)
list(APPEND QL_GUI_SOURCES ${CMAKE_CURRENT_LIST_DIR}/TreemapPainter.cpp)
find_package(Qt6 REQUIRED COMPONENTS Svg)
