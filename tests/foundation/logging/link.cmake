add_executable(test_log_writer ${CMAKE_CURRENT_LIST_DIR}/programs/log_writer.cpp)
target_link_libraries(test_log_writer PRIVATE foundation)
add_dependencies(${name}_tests test_log_writer)
