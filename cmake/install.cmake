# The install tree: bin/ (programs of the user), include/skyfold-core/, the libraries, and what belongs to the package alone in folders of its
# own: libexec/skyfold-core/ (the module loader), lib/skyfold-core/modules/ (modules for any application), share/skyfold-core/. The sample is
# an application like any other (see applications.cmake). find_package(skyfold-core) gives skyfold::core, skyfold::foundation,
# skyfold::sqlite, and, where CORE_SIMULATION is on, skyfold::simulation for tests.
#
# Components are the packages: runtime, development, tools, sample.
include(CMakePackageConfigHelpers)
set(package skyfold-core)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
set(generated ${CMAKE_CURRENT_BINARY_DIR}/package)
set(CORE_LIBEXEC ${CMAKE_INSTALL_LIBEXECDIR}/${package})
set(CORE_SHARE ${CMAKE_INSTALL_DATADIR}/${package})
set(CORE_MODULES lib/${package}/modules)

foreach(library ${CORE_LIBRARIES})
    set(component runtime)
    if(library STREQUAL simulation)
        set(component development) # Tests are written there.
    endif()
    install(TARGETS ${library} EXPORT ${package}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${package} COMPONENT development)
endforeach()
if(NOT CORE_USES_FOLLY)
    # Programs must be compiled with the very folly::Function that the libraries were.
    install(FILES libs/base/folly/Function.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${package}/folly COMPONENT development)
endif()

set_target_properties(module_loader PROPERTIES INSTALL_RPATH "$ORIGIN/../../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS module_loader RUNTIME DESTINATION ${CORE_LIBEXEC} COMPONENT runtime)
install(DIRECTORY resources/logging_profiles DESTINATION ${CORE_SHARE} COMPONENT runtime)
_core_set_install_rpath(inspector_web ../../..)
install(TARGETS inspector_web LIBRARY DESTINATION ${CORE_MODULES} COMPONENT runtime)

install(TARGETS hub RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

install(PROGRAMS scripts/new-application DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME skyfold-core-new-application
    COMPONENT development)
install(DIRECTORY packaging/new-application DESTINATION ${CORE_SHARE} COMPONENT development)
include(manuals)

# pkg-config files; what a library's headers include is in REQUIRES.
function(core_install_pkg_config library description requires)
    get_target_property(output_name ${library} OUTPUT_NAME)
    file(RELATIVE_PATH to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix) # So that the tree can be moved.
    configure_file(cmake/library.pc.in ${generated}/${output_name}.pc @ONLY)
    install(FILES ${generated}/${output_name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()
core_install_pkg_config(foundation "Base library: values, event loop, promises, signals, files, logging" fmt)
core_install_pkg_config(sqlite "SQLite with exceptions" skyfold-core-foundation)
core_install_pkg_config(core "Runtime library of applications that are split into processes"
    "skyfold-core-foundation, skyfold-core-sqlite")
if(CORE_SIMULATION)
    core_install_pkg_config(simulation "A whole application in one thread, for tests" skyfold-core)
endif()

install(EXPORT ${package} FILE ${package}-targets.cmake NAMESPACE skyfold:: DESTINATION ${package_folder}
    COMPONENT development)
configure_package_config_file(cmake/${package}-config.cmake.in ${generated}/${package}-config.cmake
    INSTALL_DESTINATION ${package_folder} PATH_VARS CMAKE_INSTALL_LIBDIR CORE_LIBEXEC CORE_SHARE CORE_MODULES)
write_basic_package_version_file(${generated}/${package}-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${generated}/${package}-config.cmake ${generated}/${package}-config-version.cmake DESTINATION ${package_folder}
    COMPONENT development)
install(FILES cmake/applications.cmake DESTINATION ${package_folder} RENAME ${package}-applications.cmake
    COMPONENT development)
