# What an installation needs on the host beside its files. Run by `cmake --install` with the prefix in
# CMAKE_INSTALL_PREFIX.
set(etc "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/etc")
set(archive "${etc}/certificate/_archive")

# An index that is there, of whatever content, is never touched.
if(NOT EXISTS "${archive}/INFO" AND NOT IS_SYMLINK "${archive}/INFO")
  file(WRITE "${archive}/.INFO.new" "{}\n")
  file(CHMOD "${archive}/.INFO.new" PERMISSIONS OWNER_READ OWNER_WRITE)
  file(RENAME "${archive}/.INFO.new" "${archive}/INFO" NO_REPLACE RESULT outcome)
  file(REMOVE "${archive}/.INFO.new")
  if(outcome STREQUAL "0")
    message(STATUS "Made: ${archive}/INFO")
  elseif(NOT outcome STREQUAL "NO_REPLACE")
    message(FATAL_ERROR "Cannot make ${archive}/INFO: ${outcome}")
  endif()
endif()

# The renewal job that an uninstallation put aside; one that was made meanwhile wins. Cron does not
# read the staging name.
set(job "$ENV{DESTDIR}/etc/cron.d/kova-letsencrypt")
set(parked "${etc}/renewal-job.parked")
if(EXISTS "${parked}")
  if(NOT EXISTS "${job}")
    file(COPY_FILE "${parked}" "${job}.new")
    file(CHMOD "${job}.new" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    file(RENAME "${job}.new" "${job}")
    message(STATUS "Brought back: ${job}")
  endif()
  file(REMOVE "${parked}")
endif()
