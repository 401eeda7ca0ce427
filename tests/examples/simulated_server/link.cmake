# All of the application but its main().
set(media_server ${PROJECT_SOURCE_DIR}/examples/media_server)
file(GLOB skyfold_sources CONFIGURE_DEPENDS ${media_server}/skyfold/*.cpp)
list(FILTER skyfold_sources EXCLUDE REGEX "/main.cpp$")
target_sources(${name}_tests PRIVATE ${skyfold_sources} ${media_server}/library/media_library.cpp ${media_server}/library/file_kind.cpp)
target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/apps)
target_include_directories(${name}_tests SYSTEM PRIVATE ${CLI11_INCLUDE_DIR})
target_link_libraries(${name}_tests PRIVATE media_server_api simulation)
add_dependencies(${name}_tests library scanner console)
