# Compiled in: what keeps the file is no public interface.
target_sources(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/libs/platform/firewall/detail/records_file.cpp
    ${PROJECT_SOURCE_DIR}/libs/platform/firewall/detail/records_text.cpp
    ${PROJECT_SOURCE_DIR}/libs/platform/detail/private_folder.cpp)
target_link_libraries(${name}_tests PRIVATE PkgConfig::GIO)
