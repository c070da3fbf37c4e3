# SPDX-License-Identifier: Apache-2.0
# What a program needs that is compiled against the public headers: kza::wx and
# PkgConfig::KZA_LUA. Used by this tree, and by find_package(kza_core) where the
# library is installed. KZA_MISSING names what is not there.

set(KZA_MISSING "")

find_package(PkgConfig)
if(PkgConfig_FOUND)
  pkg_check_modules(KZA_LUA QUIET IMPORTED_TARGET GLOBAL lua5.2-c++)
endif()
if(NOT KZA_LUA_FOUND)
  list(APPEND KZA_MISSING "lua5.2-c++")
endif()

# wx-config knows the base library alone; CMake's own module would pull in the
# defaults of the GUI build.
find_program(WX_CONFIG NAMES wx-config)
if(WX_CONFIG)
  execute_process(COMMAND ${WX_CONFIG} --cxxflags base
                  OUTPUT_VARIABLE KZA_WX_CXXFLAGS
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${WX_CONFIG} --libs base
                  OUTPUT_VARIABLE KZA_WX_LIBS
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
else()
  list(APPEND KZA_MISSING "wx-config")
endif()

if(NOT TARGET kza::wx)
  separate_arguments(wx_flags UNIX_COMMAND "${KZA_WX_CXXFLAGS}")
  separate_arguments(wx_libs UNIX_COMMAND "${KZA_WX_LIBS}")
  set(wx_includes ${wx_flags})
  list(FILTER wx_includes INCLUDE REGEX "^-I")
  list(TRANSFORM wx_includes REPLACE "^-I" "")
  list(FILTER wx_flags EXCLUDE REGEX "^-I")

  add_library(kza::wx INTERFACE IMPORTED GLOBAL)
  target_include_directories(kza::wx SYSTEM INTERFACE ${wx_includes})
  target_compile_options(kza::wx INTERFACE ${wx_flags})
  target_link_libraries(kza::wx INTERFACE ${wx_libs})
endif()
