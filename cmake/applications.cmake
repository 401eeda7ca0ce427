# core_add_module(NAME SOURCE...): a module library, where the module manager looks for it: modules/NAME.dll in the build
# tree, and in the install tree. Programs belong into programs/ (build) and bin/ (installed), beside modules/.
set(CORE_MODULE_DIRECTORY ${CMAKE_BINARY_DIR}/modules)

function(core_add_module name)
    add_library(${name} MODULE ${ARGN})
    target_link_libraries(${name} PRIVATE skyfold::core)
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX .dll LIBRARY_OUTPUT_DIRECTORY ${CORE_MODULE_DIRECTORY})
    install(TARGETS ${name} LIBRARY DESTINATION modules)
endfunction()
