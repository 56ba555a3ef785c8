# Warnings and sanitizers, applied per target through corvane_target_defaults().

function(corvane_target_defaults target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(CORVANE_SANITIZER)
    target_compile_options(${target} PRIVATE -fsanitize=${CORVANE_SANITIZER} -fno-omit-frame-pointer -g)
    target_link_options(${target} PRIVATE -fsanitize=${CORVANE_SANITIZER})
  endif()
  if(CORVANE_FUZZ)
    # Coverage for libFuzzer's guidance and AddressSanitizer/UBSan for its findings, in every
    # target of the fuzz build; only the fuzzers themselves link libFuzzer's main.
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link,address,undefined
                                             -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
endfunction()
