# The pages by themselves, and the program that is run as a whole, as the sample's other tests run it.
set(media_server ${PROJECT_SOURCE_DIR}/examples/media_server)
target_sources(${name}_tests PRIVATE
    examples/media_server/program.cpp
    ${media_server}/inspector_web/action_text.cpp
    ${media_server}/inspector_web/error_page.cpp
    ${media_server}/inspector_web/html_page.cpp
    ${media_server}/inspector_web/inspector_pages.cpp)
target_link_libraries(${name}_tests PRIVATE media_server_api PkgConfig::GIO)
add_dependencies(${name}_tests skyfold)
