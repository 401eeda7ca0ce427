target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/apps)
target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/apps/inspector_web/request_head.cpp)
