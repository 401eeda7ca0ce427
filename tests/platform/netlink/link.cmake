# Compiled in: what reads the kernel's bytes is no public interface.
target_sources(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/libs/platform/detail/netlink.cpp)
target_link_libraries(${name}_tests PRIVATE PkgConfig::LIBMNL)
