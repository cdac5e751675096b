# GMP: the big-number form of QNumber. Debian ships gmp.pc and gmpxx.pc;
# fall back to a plain library search where pkg-config is missing.
find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(KORA_GMP QUIET IMPORTED_TARGET gmp)
  pkg_check_modules(KORA_GMPXX QUIET IMPORTED_TARGET gmpxx)
endif()

if(TARGET PkgConfig::KORA_GMP AND TARGET PkgConfig::KORA_GMPXX)
  add_library(kora_gmp INTERFACE)
  target_link_libraries(kora_gmp INTERFACE PkgConfig::KORA_GMPXX PkgConfig::KORA_GMP)
else()
  find_path(KORA_GMP_INCLUDE_DIR gmpxx.h)
  find_library(KORA_GMP_LIBRARY gmp)
  find_library(KORA_GMPXX_LIBRARY gmpxx)
  if(NOT KORA_GMP_INCLUDE_DIR OR NOT KORA_GMP_LIBRARY OR NOT KORA_GMPXX_LIBRARY)
    message(FATAL_ERROR
      "GMP with its C++ interface (gmp.h, gmpxx.h, libgmp, libgmpxx) was not found.\n"
      "On Debian or Ubuntu install it with:  apt-get install libgmp-dev\n"
      "(`make test` does this for you when run as root).")
  endif()
  add_library(kora_gmp INTERFACE)
  target_include_directories(kora_gmp INTERFACE ${KORA_GMP_INCLUDE_DIR})
  target_link_libraries(kora_gmp INTERFACE ${KORA_GMPXX_LIBRARY} ${KORA_GMP_LIBRARY})
endif()

if(KORA_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(KORA_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
