# Every first-party target gets the same strict warnings; -Werror is on by default and in CI.
option(APPLOGIC_WERROR "Treat warnings as errors" ON)
function(applogic_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
    # clang (the fuzz build) has no -Wshadow=local.
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
  if(APPLOGIC_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
