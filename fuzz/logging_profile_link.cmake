# Compiled in: what reads a profile's lines is no public interface.
target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/libs/core/services/logging_profile/detail/profile_reader.cpp)
