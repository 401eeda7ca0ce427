# Run by ctest with SOURCE and BUILD (the trees to install) and WORK (a folder to fill).
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)

# A project of somebody else: configured, built and installed beside the package.
run(${CMAKE_COMMAND} -S ${SOURCE}/examples/first_module -B ${WORK}/first_module -G Ninja -DCMAKE_BUILD_TYPE=Debug
    -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_INSTALL_PREFIX=${WORK}/prefix)
run(${CMAKE_COMMAND} --build ${WORK}/first_module)
run(${CMAKE_COMMAND} --install ${WORK}/first_module)
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${WORK}/prefix/bin/first_module)
