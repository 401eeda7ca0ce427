# Run by ctest with SOURCE and BUILD (the trees to install) and WORK (a folder to fill).
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)

# A project of somebody else: configured, built and installed beside the package.
function(build project)
    run(${CMAKE_COMMAND} -S ${SOURCE}/${project} -B ${WORK}/${project} -G Ninja -DCMAKE_BUILD_TYPE=Debug
        -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_INSTALL_PREFIX=${WORK}/prefix)
    run(${CMAKE_COMMAND} --build ${WORK}/${project})
endfunction()

build(tests/package/every_class)
run(${WORK}/tests/package/every_class/every_class)
build(examples/first_module)
run(${CMAKE_COMMAND} --install ${WORK}/examples/first_module)
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${WORK}/prefix/bin/first_module)
