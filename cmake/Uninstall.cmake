# Takes away what `cmake --install` of the build folder BUILD has put down below PREFIX and elsewhere,
# and leaves what became the administrator's: archive, accounts, settings, services' folders, hooks.
# DESTDIR is honoured.
set(root "$ENV{DESTDIR}")
set(settings "${PREFIX}/etc.defaults/letsencrypt/letsencrypt.default")
set(manifest "${BUILD}/install_manifest.txt")
if(NOT EXISTS "${manifest}")
  message(FATAL_ERROR "Nothing was installed from ${BUILD}: `cmake --install` writes down what it does"
                      " in ${manifest}, and there is none.")
endif()

function(remove_file path)
  if(EXISTS "${path}" OR IS_SYMLINK "${path}")
    file(REMOVE "${path}")
    if(EXISTS "${path}" OR IS_SYMLINK "${path}")
      message(FATAL_ERROR "Cannot remove ${path}")
    endif()
    message(STATUS "Removed: ${path}")
  endif()
endfunction()

# The folder and those above it, as long as they are empty, up to the prefix. Others are the system's.
function(remove_empty_folders folder)
  while("${folder}/" MATCHES "^${PREFIX}/" AND IS_DIRECTORY "${root}${folder}")
    execute_process(COMMAND rmdir "${root}${folder}" RESULT_VARIABLE kept ERROR_QUIET)
    if(kept)
      return()
    endif()
    message(STATUS "Removed: ${root}${folder}")
    get_filename_component(folder "${folder}" DIRECTORY)
  endwhile()
endfunction()

# A renewal job whose program is gone would fail for ever. It is put aside where no cron looks, as it
# stands; the next installation brings it back.
function(park_job job parked)
  if(NOT EXISTS "${job}")
    return()
  endif()
  file(READ "${job}" text)
  if(text MATCHES "/usr/kova/sbin/kova-letsencrypt")
    file(COPY_FILE "${job}" "${parked}")
    file(REMOVE "${job}")
    message(STATUS "Put aside: ${job}, as ${parked}")
  endif()
endfunction()

# The timer of a systemd that runs would start what is gone. It stays enabled for the next installation.
function(systemd_of_this_host)
  if(root STREQUAL "" AND IS_DIRECTORY /run/systemd/system)
    execute_process(COMMAND systemctl ${ARGN} ERROR_QUIET)
  endif()
endfunction()

systemd_of_this_host(stop kova-letsencrypt.timer)
park_job("${root}/etc/cron.d/kova-letsencrypt" "${root}${PREFIX}/etc/renewal-job.parked")
file(STRINGS "${manifest}" files)
foreach(file IN LISTS files)
  if(NOT file STREQUAL settings)
    remove_file("${root}${file}")
    get_filename_component(folder "${file}" DIRECTORY)
    remove_empty_folders("${folder}")
  endif()
endforeach()
remove_empty_folders("${PREFIX}/libexec/platform.d")
systemd_of_this_host(--system daemon-reload)
message(STATUS "Left: ${root}${PREFIX}/etc (certificates, keys, accounts) and ${root}${settings}")
