# Run by ctest with BUILD (the build tree to install), WORK (a folder to fill) and PROJECT (who uses the package).
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} -S ${PROJECT} -B ${WORK}/build -G Ninja -DCMAKE_BUILD_TYPE=Debug
    -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_INSTALL_PREFIX=${WORK}/prefix)
run(${CMAKE_COMMAND} --build ${WORK}/build --parallel 2)
run(${WORK}/build/every_class)
