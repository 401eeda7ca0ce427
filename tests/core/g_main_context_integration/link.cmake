target_link_libraries(${name}_tests PRIVATE PkgConfig::GIO)
