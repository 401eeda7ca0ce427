# The install tree: bin/ (programs), modules/ (module libraries), lib/ and include/skyfold-core/ (for developers), and in its
# root the marker by which fn::PathManager tells it from a build tree. find_package(skyfold-core) gives skyfold::core,
# skyfold::foundation, skyfold::sqlite, and, where CORE_SIMULATION is on, skyfold::simulation for tests.
include(CMakePackageConfigHelpers)
set(package skyfold-core)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/${package})

install(TARGETS ${CORE_LIBRARIES} EXPORT ${package}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${package})
if(NOT CORE_USES_FOLLY)
    # Programs must be compiled with the very folly::Function that the libraries were.
    install(FILES libs/base/folly/Function.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${package}/folly)
endif()

# The layout that fn::PathManager looks for; core_add_module() installs the modules themselves. The marker must not lie in
# the root of the build tree, which would then count as installed.
file(WRITE ${CMAKE_BINARY_DIR}/install/skyfold.installed "${PROJECT_VERSION}\n")
install(FILES ${CMAKE_BINARY_DIR}/install/skyfold.installed DESTINATION .)
install(DIRECTORY resources/ DESTINATION . OPTIONAL)
foreach(program hub module_loader skyfold)
    if(TARGET ${program})
        install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
endforeach()

install(EXPORT ${package} FILE ${package}-targets.cmake NAMESPACE skyfold:: DESTINATION ${package_folder})
set(generated ${CMAKE_CURRENT_BINARY_DIR}/package)
configure_package_config_file(cmake/${package}-config.cmake.in ${generated}/${package}-config.cmake
    INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${generated}/${package}-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${generated}/${package}-config.cmake ${generated}/${package}-config-version.cmake DESTINATION ${package_folder})
install(FILES cmake/applications.cmake DESTINATION ${package_folder} RENAME ${package}-applications.cmake)
