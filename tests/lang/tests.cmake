ql_test(test_lang quorlane_core
  ${CMAKE_CURRENT_LIST_DIR}/TLTest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TextTableReaderTest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TextIdsTest.cpp
)
# The id test reads the source tree as it stands.
target_compile_definitions(test_lang PRIVATE QL_SOURCE_DIR="${CMAKE_SOURCE_DIR}/src")
