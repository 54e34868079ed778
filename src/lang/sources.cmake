list(APPEND QL_CORE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/TL.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TextTableReader.cpp
)
# The English and Russian tables.
list(APPEND QL_CORE_RESOURCES ${CMAKE_CURRENT_LIST_DIR}/../../resources/lang/quorlane_lang.qrc)
