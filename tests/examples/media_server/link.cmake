# The parts that are tested by themselves, and the program that is run as a whole.
set(media_server ${PROJECT_SOURCE_DIR}/examples/media_server)
target_sources(${name}_tests PRIVATE
    ${media_server}/console/format.cpp
    ${media_server}/console/rate_meter.cpp
    ${media_server}/library/file_kind.cpp)
target_link_libraries(${name}_tests PRIVATE media_server_api)
add_dependencies(${name}_tests skyfold)
