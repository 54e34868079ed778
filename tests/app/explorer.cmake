ql_test(test_explorer_entry quorlane_core ${CMAKE_CURRENT_LIST_DIR}/ExplorerEntryTest.cpp)
# The install layout; it needs the program built.
add_test(NAME install_layout COMMAND ${CMAKE_COMMAND} -DBUILD=${CMAKE_BINARY_DIR}
         -DSCRATCH=${CMAKE_CURRENT_BINARY_DIR}/install-check -P ${CMAKE_CURRENT_LIST_DIR}/install/InstallCheck.cmake)
add_dependencies(test_explorer_entry quorlane)
