# Run by cpack before it makes a Debian package. Without dpkg-shlibdeps cpack itself would make one
# that depends on no library, and without file it ends in the middle.
if(CPACK_GENERATOR STREQUAL "DEB")
  foreach(tool_of "file:file" "dpkg-shlibdeps:dpkg-dev")
    string(REPLACE ":" ";" tool_of ${tool_of})
    list(GET tool_of 0 tool)
    list(GET tool_of 1 package)
    unset(found)
    find_program(found ${tool} NO_CACHE)
    if(NOT found)
      message(FATAL_ERROR "The Debian package needs ${tool}: apt-get install ${package}")
    endif()
  endforeach()
endif()
