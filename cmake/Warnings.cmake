# Every first-party target gets the same strict warnings; -Werror is on by default and in CI.
option(APPLOGIC_WERROR "Treat warnings as errors" ON)
function(applogic_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
    # clang (the fuzz build) has no -Wshadow=local.
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
  if(APPLOGIC_WERROR)
    target_compile_options(${target} PRIVATE -Werror
      # g++ 12 at -O3 reports "may be used uninitialized" inside the moves of a disengaged
      # std::optional of a record with strings (inlined from the standard library, not our code);
      # the warning stays visible but does not fail the build.
      $<$<CXX_COMPILER_ID:GNU>:-Wno-error=maybe-uninitialized>)
  endif()
endfunction()
