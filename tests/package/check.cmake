# Run by ctest with SOURCE and BUILD (the trees to install) and WORK (a folder to fill): somebody who knows nothing but the installed
# package has a new application written, builds, runs, tests, packs, and installs it.
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(expect_greeting program)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${program} OUTPUT_VARIABLE said COMMAND_ERROR_IS_FATAL ANY)
    if(NOT said STREQUAL "Hello, world!\n")
        message(FATAL_ERROR "${program} says: ${said}")
    endif()
endfunction()

function(expect_failure text)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status ERROR_VARIABLE said)
    string(REGEX REPLACE "[ \n]+" " " said "${said}")
    string(FIND "${said}" "${text}" position)
    if(status EQUAL 0 OR position EQUAL -1)
        message(FATAL_ERROR "${ARGN} gives ${status} and says \"${said}\", not \"${text}\"")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
set(new_application ${WORK}/prefix/bin/skyfold-core-new-application)
run(${new_application} "Big Thumbs" ${WORK}/thumbs)
run(${CMAKE_COMMAND} -S ${WORK}/thumbs -B ${WORK}/thumbs/build -G Ninja -DCMAKE_BUILD_TYPE=Debug
    -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_INSTALL_PREFIX=${WORK}/own)
run(${CMAKE_COMMAND} --build ${WORK}/thumbs/build)
expect_greeting(${WORK}/thumbs/build/bin/big-thumbs)
run(${CMAKE_CTEST_COMMAND} --test-dir ${WORK}/thumbs/build --output-on-failure --no-tests=error)

# In a prefix of its own, and in the package's, which is then moved. An archive holds the same.
run(${CMAKE_COMMAND} --install ${WORK}/thumbs/build)
expect_greeting(${WORK}/own/bin/big-thumbs)
run(${CMAKE_COMMAND} --install ${WORK}/thumbs/build --prefix ${WORK}/prefix)
file(RENAME ${WORK}/prefix ${WORK}/moved)
expect_greeting(${WORK}/moved/bin/big-thumbs)
run(${CMAKE_COMMAND} -E chdir ${WORK}/thumbs/build ${CMAKE_CPACK_COMMAND} -G TGZ)

# What cannot be is refused, with what to do about it.
set(new_application ${WORK}/moved/bin/skyfold-core-new-application)
expect_failure("\"Böse\" is no name for an application" ${new_application} Böse ${WORK}/other)
expect_failure("is not empty. Name a folder" ${new_application} Thumbs ${WORK}/thumbs)
expect_failure("cannot make the folder" ${new_application} Thumbs /proc/thumbs)
foreach(case
    "no_module|there is no module decoder. Add core_add_module(decoder|thumbs SOURCES main.cpp MODULES decoder"
    "no_package_module|the package brings no module nothing|thumbs SOURCES main.cpp MODULES skyfold::nothing"
    "bad_id|\"Thumbs!\" is no id of an application|thumbs SOURCES main.cpp ID Thumbs!"
    "no_sources|no sources. Name them behind SOURCES|thumbs MODULES decoder")
    string(REPLACE "|" ";" case "${case}")
    list(POP_FRONT case name text arguments)
    file(WRITE ${WORK}/${name}.cmake "include(${SOURCE}/cmake/applications.cmake)\ncore_add_application(${arguments})\n")
    expect_failure("${text}" ${CMAKE_COMMAND} -P ${WORK}/${name}.cmake)
endforeach()
