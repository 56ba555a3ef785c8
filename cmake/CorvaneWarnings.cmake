# Warnings and sanitizers, applied per target through corvane_target_defaults().

function(corvane_target_defaults target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(CORVANE_SANITIZER)
    target_compile_options(${target} PRIVATE -fsanitize=${CORVANE_SANITIZER} -fno-omit-frame-pointer -g)
    target_link_options(${target} PRIVATE -fsanitize=${CORVANE_SANITIZER})
  endif()
endfunction()
