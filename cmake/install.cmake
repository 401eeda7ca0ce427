# The install tree: bin/ (programs), modules/ (module libraries), lib/ and include/core/ (for developers), and in its root
# the marker by which fn::PathManager tells it from a build tree. find_package(core) gives core::core, core::foundation,
# core::sqlite, and, where CORE_SIMULATION is on, core::simulation for tests.
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/core)

install(TARGETS ${CORE_LIBRARIES} EXPORT coreTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/core)
if(NOT CORE_USES_FOLLY)
    # Programs must be compiled with the very folly::Function that the libraries were.
    install(FILES libs/base/folly/Function.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/core/folly)
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

install(EXPORT coreTargets NAMESPACE core:: DESTINATION ${package_folder})

configure_package_config_file(cmake/coreConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/coreConfig.cmake
    INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/coreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/coreConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/coreConfigVersion.cmake
    cmake/coreModule.cmake DESTINATION ${package_folder})
