# Compiler and linker settings shared by every target.

find_program(ZIVORA_MOLD mold)
if(ZIVORA_MOLD)
  add_link_options(-fuse-ld=mold)
endif()

# Small debug info keeps link times short on two cores.
add_compile_options(-g1)

if(ZIVORA_SANITIZE)
  # Sanitizer trees favour build time: -O0 halves the compile time of an
  # instrumented translation unit.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O0")
  set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O0")
  add_compile_options(-fsanitize=${ZIVORA_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZIVORA_SANITIZE})
  if(ZIVORA_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
  endif()
  if(ZIVORA_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

function(zivora_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(ZIVORA_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
