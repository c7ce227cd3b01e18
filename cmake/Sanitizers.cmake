# Sanitizers apply to the whole build tree so that the library, the doubles and the tests agree.
if(APPLOGIC_SANITIZE)
  add_compile_options(-fsanitize=${APPLOGIC_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${APPLOGIC_SANITIZE})
endif()

# A fuzz build instruments the whole tree for coverage, so that libFuzzer is guided by the
# library's branches and not only by those of the fuzz targets; the targets link -fsanitize=fuzzer.
if(APPLOGIC_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "APPLOGIC_BUILD_FUZZ needs clang: configure with CXX=clang++")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
