# All of the module but its entry point.
set(inspector_web ${PROJECT_SOURCE_DIR}/apps/inspector_web)
file(GLOB inspector_web_sources CONFIGURE_DEPENDS ${inspector_web}/*.cpp)
list(FILTER inspector_web_sources EXCLUDE REGEX "_module.cpp$")
target_sources(${name}_tests PRIVATE ${inspector_web_sources})
target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/apps)
target_link_libraries(${name}_tests PRIVATE PkgConfig::GIO)
