add_library(test_told SHARED ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/programs/test_told_module.cpp)
target_link_libraries(test_told PRIVATE core)
target_include_directories(test_told PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
set_target_properties(test_told PROPERTIES PREFIX "" SUFFIX ".dll" LIBRARY_OUTPUT_DIRECTORY ${CORE_MODULE_DIRECTORY})
target_sources(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/libs/core/ipc/module_manager/detail/relaunches.cpp) # Not exported.
target_link_libraries(${name}_tests PRIVATE simulation)
add_dependencies(${name}_tests test_told module_loader)
