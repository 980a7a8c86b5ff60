# Warnings, hardening and instrumentation shared by every target (link kova_options).
add_library(kova_options INTERFACE)
target_compile_options(kova_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wformat-nonliteral -Werror=format
  -fstack-protector-strong $<$<BOOL:${KOVA_WERROR}>:-Werror>)
# g++ 12 finds overlapping copies in std::string's own code when it is optimised.
target_compile_options(kova_options INTERFACE
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<COMPILE_LANGUAGE:CXX>>:-Wno-restrict>)
target_include_directories(kova_options INTERFACE
  ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/generated)

if(KOVA_SANITIZE)
  set(kova_instrumentation -fsanitize=address,undefined -fno-sanitize-recover=all
                           -fno-omit-frame-pointer)
  if(KOVA_FUZZ)
    list(APPEND kova_instrumentation -fsanitize=fuzzer-no-link)
  endif()
elseif(KOVA_COVERAGE)
  set(kova_instrumentation --coverage)
else()
  target_compile_definitions(kova_options INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
  target_link_options(kova_options INTERFACE -pie -Wl,-z,relro,-z,now)
endif()
target_compile_options(kova_options INTERFACE ${kova_instrumentation})
target_link_options(kova_options INTERFACE ${kova_instrumentation})

# A static library of one src/ folder: kova_module(NAME SOURCES ... USES ...).
function(kova_module name)
  cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
  add_library(kova_${name} STATIC ${arg_SOURCES})
  target_link_libraries(kova_${name} PUBLIC kova_options ${arg_USES})
endfunction()
