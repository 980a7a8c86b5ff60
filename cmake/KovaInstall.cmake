# The installed tree. Below the prefix lie the programs and everything they read at fixed paths;
# manual pages and completion go where a stock system looks for them. DESTDIR stages the whole.
include(GNUInstallDirs)

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr/kova")
  set(kova_share /usr/share)
  set(kova_units /lib/systemd/system)
else()
  set(kova_share share)
  set(kova_units lib/systemd/system)
endif()
set(KOVA_MANDIR ${kova_share}/man CACHE STRING "Where manual pages go")
set(KOVA_COMPLETIONDIR ${kova_share}/bash-completion/completions CACHE STRING
    "Where bash looks for completions")
set(KOVA_UNITDIR ${kova_units} CACHE STRING "Where systemd looks for units")

find_program(KOVA_GZIP gzip REQUIRED)

# kova_compressed(OUTPUT SOURCE): a build rule; -n keeps the time out, so that builds compare equal.
function(kova_compressed output source)
  add_custom_command(OUTPUT ${output}
    COMMAND ${KOVA_GZIP} -9n -c ${source} > ${output}
    DEPENDS ${source} VERBATIM)
endfunction()

set(kova_manual_pages "")
foreach(page kova-letsencrypt.8 kova-archive.8 kova-device.json.5)
  set(compressed ${PROJECT_BINARY_DIR}/man/${page}.gz)
  kova_compressed(${compressed} ${PROJECT_SOURCE_DIR}/docs/man/${page})
  list(APPEND kova_manual_pages ${compressed})
  string(REGEX MATCH "[0-9]$" section ${page})
  install(FILES ${compressed} DESTINATION ${KOVA_MANDIR}/man${section})
endforeach()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
add_custom_target(kova_manual ALL DEPENDS ${kova_manual_pages})

install(TARGETS kova-letsencrypt kova-archive RUNTIME DESTINATION sbin)

# One file completes both commands; bash looks it up by either name.
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/completion)
file(CREATE_LINK kova-letsencrypt ${PROJECT_BINARY_DIR}/completion/kova-archive SYMBOLIC)
install(FILES ${PROJECT_SOURCE_DIR}/data/completion/kova-letsencrypt
              ${PROJECT_BINARY_DIR}/completion/kova-archive
        DESTINATION ${KOVA_COMPLETIONDIR})

# Beside the cron job, which the program makes itself; an administrator enables them.
install(FILES packaging/systemd/${PROJECT_NAME}.timer packaging/systemd/${PROJECT_NAME}.service
        DESTINATION ${KOVA_UNITDIR})

# kova_install_documents(FOLDER ...): what there is to read, and the examples, all of them programs.
function(kova_install_documents folder)
  install(FILES README.md DESTINATION ${folder} ${ARGN})
  install(FILES docs/formats.md docs/reliability.md DESTINATION ${folder}/docs ${ARGN})
  install(DIRECTORY packaging/examples/ DESTINATION ${folder}/examples ${ARGN}
          FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                           WORLD_READ WORLD_EXECUTE)
endfunction()
# The package has a place of its own for them (KovaPackage.cmake).
kova_install_documents(share/doc/${PROJECT_NAME} COMPONENT documents)

# Nobody's PATH leads below the prefix: the system's folder gets links, relative ones, which lead to
# the same place from outside of a staging folder or a container.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr/kova")
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
  foreach(program kova-letsencrypt kova-archive)
    file(CREATE_LINK ../kova/sbin/${program} ${PROJECT_BINARY_DIR}/links/${program} SYMBOLIC)
    install(FILES ${PROJECT_BINARY_DIR}/links/${program} DESTINATION /usr/sbin)
  endforeach()
endif()

# Administrators edit the settings, so a later installation leaves them alone.
install(CODE "set(kova_settings \"${PROJECT_SOURCE_DIR}/data/letsencrypt.default\")")
install(CODE [[
  set(folder "${CMAKE_INSTALL_PREFIX}/etc.defaults/letsencrypt")
  if(EXISTS "$ENV{DESTDIR}${folder}/letsencrypt.default")
    message(STATUS "Kept: $ENV{DESTDIR}${folder}/letsencrypt.default")
  else()
    file(INSTALL DESTINATION "${folder}" TYPE FILE FILES "${kova_settings}")
  endif()]])

# The archive holds private keys: nobody but root looks in.
install(DIRECTORY DESTINATION etc/certificate/_archive
        DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
install(DIRECTORY DESTINATION libexec/platform.d
        DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                              WORLD_READ WORLD_EXECUTE)

# The package's own scripts do the same.
install(SCRIPT ${PROJECT_SOURCE_DIR}/cmake/InstallState.cmake COMPONENT state)

add_custom_target(uninstall
  COMMAND ${CMAKE_COMMAND} -D BUILD=${PROJECT_BINARY_DIR} -D PREFIX=${CMAKE_INSTALL_PREFIX}
          -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake
  COMMENT "Taking away what was installed" USES_TERMINAL VERBATIM)
