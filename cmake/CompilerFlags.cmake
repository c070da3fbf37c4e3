# SPDX-License-Identifier: Apache-2.0
# Warnings, hardening and sanitizers for every target of the project.

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g")
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O2 -g")

add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wcast-align -Wformat=2
  -Wundef -Wvla -fno-omit-frame-pointer
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>)

if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  # The same bytes wherever the tree lies.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()

if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT KZA_SANITIZE)
  # Level 3 needs support by compiler and C library; the headers warn of less.
  include(CheckCXXSourceCompiles)
  string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
  set(CMAKE_REQUIRED_FLAGS "${CMAKE_CXX_FLAGS_${build_type}} -Werror \
-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstdio>\nint main() {}"
                            KZA_HAS_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  if(KZA_HAS_FORTIFY_3)
    set(fortify_level 3)
  else()
    set(fortify_level 2)
  endif()
  add_compile_options(
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${fortify_level}
    $<$<COMPILE_LANGUAGE:CXX>:-D_GLIBCXX_ASSERTIONS>
    -fstack-protector-strong -fstack-clash-protection)
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
