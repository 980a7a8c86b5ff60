# Read after the project's own first line, in the trees of mutants alone.
function(kova_precompile)
  if(TARGET kova_options)
    target_precompile_headers(kova_options INTERFACE
      $<$<COMPILE_LANGUAGE:CXX>:${PROJECT_SOURCE_DIR}/scripts/mutation/precompiled.h>)
  endif()
endfunction()
cmake_language(DEFER CALL kova_precompile)
