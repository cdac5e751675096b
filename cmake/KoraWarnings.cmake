# Warning and sanitizer flags shared by every target of the project.
add_library(kora_options INTERFACE)
target_compile_options(kora_options INTERFACE -Wall -Wextra -Wpedantic)
if(KORA_WERROR)
  target_compile_options(kora_options INTERFACE -Werror)
endif()
if(KORA_SANITIZE)
  set(_kora_san -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_compile_options(kora_options INTERFACE ${_kora_san})
  target_link_options(kora_options INTERFACE ${_kora_san})
endif()
# Fuzzing instruments every target (coverage feedback, ASan, UBSan) without
# libFuzzer's main(); only the fuzz targets themselves link the driver.
if(KORA_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "KORA_BUILD_FUZZ needs clang (libFuzzer): use the fuzz preset")
  endif()
  set(_kora_fuzz -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
                 -fno-omit-frame-pointer)
  target_compile_options(kora_options INTERFACE ${_kora_fuzz})
  target_link_options(kora_options INTERFACE -fsanitize=address,undefined)
endif()
