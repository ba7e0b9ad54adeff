# Sanitizers apply to every target so that the platform libraries are instrumented too.
if(QEL_SANITIZE)
  add_compile_options(-fsanitize=${QEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QEL_SANITIZE})
endif()
