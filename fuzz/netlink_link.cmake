# Compiled in: what reads the kernel's bytes is no public interface.
target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/libs/platform/detail/netlink.cpp
    ${PROJECT_SOURCE_DIR}/libs/platform/detail/network_adapters.cpp)
target_link_libraries(${target} PRIVATE PkgConfig::LIBMNL)
