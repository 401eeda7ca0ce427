pkg_check_modules(MSGPACK REQUIRED IMPORTED_TARGET msgpack)
target_link_libraries(${name}_tests PRIVATE PkgConfig::MSGPACK)
