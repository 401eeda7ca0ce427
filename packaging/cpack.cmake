# Debian packages, by `cpack` in the build folder of the preset "package". Each component of install.cmake is a package. What a package
# depends on is found: libraries by dpkg-shlibdeps, headers and Python modules by packaging/dependencies, and our own packages by what the
# components stand on.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME skyfold-core)
set(CPACK_PACKAGE_CONTACT "The developers of skyfold-core <developers@skyfold-core.invalid>") # Nobody reads mail there.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

# For the file changelog.Debian.gz: version and date of CHANGELOG.md's first entry.
file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md entries REGEX "^## ")
list(GET entries 0 entry)
if(NOT entry MATCHES "^## ([0-9.]+) \\(([0-9-]+)\\)" OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
    message(FATAL_ERROR "CHANGELOG.md begins with \"${entry}\", not with \"## ${PROJECT_VERSION} (YEAR-MONTH-DAY)\".")
endif()
execute_process(COMMAND date --utc --rfc-email --date ${CMAKE_MATCH_2} OUTPUT_VARIABLE date
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(documents ${CMAKE_BINARY_DIR}/packaging)
file(WRITE ${documents}/changelog "skyfold-core (${PROJECT_VERSION}) unstable; urgency=medium

  * CHANGELOG.md in the sources says what has changed.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
execute_process(COMMAND gzip -9nf ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)

# core_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION [COMPONENT_BELOW...])
macro(core_package component name section summary description)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
    set(CPACK_COMPONENT_${upper}_DEPENDS ${ARGN})
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    install(FILES ${documents}/changelog.gz ${PROJECT_SOURCE_DIR}/packaging/copyright DESTINATION share/doc/${name}
        COMPONENT ${component})
endmacro()

# core_package_libraries(COMPONENT LIBRARY...): what dpkg-shlibdeps is to say of those who link them, and that ldconfig is to look at them.
function(core_package_libraries component)
    string(TOUPPER ${component} upper)
    set(folder ${documents}/${component})
    file(WRITE ${folder}/triggers "activate-noawait ldconfig\n")
    file(WRITE ${folder}/shlibs "")
    foreach(library ${ARGN})
        get_target_property(name ${library} OUTPUT_NAME)
        get_target_property(number ${library} SOVERSION)
        file(APPEND ${folder}/shlibs "lib${name} ${number} ${CPACK_DEBIAN_${upper}_PACKAGE_NAME} (>= ${PROJECT_VERSION})\n")
    endforeach()
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${folder}/triggers ${folder}/shlibs PARENT_SCOPE)
endfunction()

# core_found_dependencies(KIND VARIABLE)
function(core_found_dependencies kind variable)
    execute_process(COMMAND ${PROJECT_SOURCE_DIR}/packaging/dependencies ${kind} OUTPUT_VARIABLE found
        OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(${variable} "${found}" PARENT_SCOPE)
endfunction()

core_package(runtime libskyfold-core0 libs "Runtime library of applications that are split into processes"
    "Objects that live in one process are called from any other; modules are
launched, watched and relaunched; one message bus spans all processes. With
the program that runs a module in a process of its own.")
core_package(development libskyfold-core-dev libdevel "Development files of skyfold-core"
    "Headers, CMake and pkg-config files of the runtime library skyfold-core, the
simulated world for tests, and a program that writes a new application." runtime)
core_package_libraries(runtime foundation sqlite core)
core_package_libraries(development simulation)
core_package(tools skyfold-core-tools utils "Tools for applications of skyfold-core"
    "A hub without an application, for tools, tests and measurements." runtime)
core_package(sample skyfold-core-sample misc "Sample application of skyfold-core"
    "A small media server that indexes a folder with several processes. It shows
how an application is built on the runtime library skyfold-core." runtime)
core_found_dependencies(headers CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "cmake, g++")

core_package(python python3-skyfold-core python "Objects of skyfold-core applications from Python"
    "Finds objects of a running application, calls them, listens to them, offers
objects of its own, and posts to the message bus, with asyncio.")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/bindings/python/skyfold_core DESTINATION lib/python3/dist-packages COMPONENT python
    PATTERN __pycache__ EXCLUDE)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/packaging/python/skyfold-core-objects DESTINATION bin COMPONENT python)
core_found_dependencies(python CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/python/postinst
    ${PROJECT_SOURCE_DIR}/packaging/python/prerm)
include(CPack)
