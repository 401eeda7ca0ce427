# What has threads of its own, by itself: the server and the way from its threads to the loop.
set(media_server ${PROJECT_SOURCE_DIR}/examples/media_server)
target_sources(${name}_tests PRIVATE
    examples/inspector_web/web_client.cpp
    ${media_server}/inspector_web/access.cpp
    ${media_server}/inspector_web/bounded_stream.cpp
    ${media_server}/inspector_web/error_page.cpp
    ${media_server}/inspector_web/html_page.cpp
    ${media_server}/inspector_web/http_server.cpp
    ${media_server}/inspector_web/loop_gate.cpp
    ${media_server}/inspector_web/request_head.cpp)
target_link_libraries(${name}_tests PRIVATE media_server_api PkgConfig::HTTPLIB PkgConfig::GIO Threads::Threads)
