# Sanitizers apply to the whole build tree so that the library, the doubles and the tests agree.
if(APPLOGIC_SANITIZE)
  add_compile_options(-fsanitize=${APPLOGIC_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${APPLOGIC_SANITIZE})
endif()
