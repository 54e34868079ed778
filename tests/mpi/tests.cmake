# quorlane-mpi under mpirun; only where it is built.
if(TARGET quorlane-mpi)
  ql_test(test_mpi_export quorlane_core ${CMAKE_CURRENT_LIST_DIR}/MpiExportTest.cpp)
  add_dependencies(test_mpi_export quorlane quorlane-mpi)
  target_compile_definitions(test_mpi_export PRIVATE QUORLANE_BIN_PATH="$<TARGET_FILE:quorlane>"
    QUORLANE_MPI_PATH="$<TARGET_FILE:quorlane-mpi>")
endif()
