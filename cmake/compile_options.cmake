# Warnings, hardening and sanitizers, the same for every target of the project.
add_compile_options(
  -Wall -Wextra -Wshadow -Wformat=2 -Wimplicit-fallthrough
  "$<$<COMPILE_LANGUAGE:CXX>:-Wconversion;-Wold-style-cast>")
# GCC 12 at -O3 sees overlapping copies inside std::string::operator= where there are none.
add_compile_options("$<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>")
if(IDSHIFT_WERROR)
  add_compile_options(-Werror)
endif()

# Coverage of every room, for the fuzzers to be led by; its runtime is part of the sanitizers'.
if(IDSHIFT_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT IDSHIFT_SANITIZE)
    message(FATAL_ERROR "IDSHIFT_FUZZ needs clang and IDSHIFT_SANITIZE: use the preset sanitize")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(IDSHIFT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

if(CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection=full
                      -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
  add_link_options(-Wl,-z,relro,-z,now)
endif()

include(CheckPIESupported)
check_pie_supported()
