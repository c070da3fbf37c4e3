# SPDX-License-Identifier: Apache-2.0
# Warnings, hardening and sanitizers for every target of the project.

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g")
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O2 -g")

add_compile_options(
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wcast-align -Wformat=2
  -Wundef -Wvla -fno-omit-frame-pointer
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>)

if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND NOT KZA_SANITIZE)
  add_compile_options(
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
    -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|amd64")
    add_compile_options(-fcf-protection)
  endif()
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  add_link_options(-Wl,--build-id=sha1 -Wl,--as-needed)
endif()

if(KZA_SANITIZE)
  add_compile_options(-fsanitize=${KZA_SANITIZE} -fno-sanitize-recover=all -g -O1)
  add_link_options(-fsanitize=${KZA_SANITIZE})
  # gcc takes its own instrumentation of the standard library for such uses.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
