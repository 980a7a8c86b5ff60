# Installs the build tree BUILD into the folder STAGE, afresh.
file(REMOVE_RECURSE ${STAGE})
set(ENV{DESTDIR} ${STAGE})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix /usr/kova
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
