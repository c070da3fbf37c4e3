# SPDX-License-Identifier: Apache-2.0
# The libraries that the agent calls, each as one imported target.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(nlohmann_json REQUIRED)
pkg_check_modules(LUA REQUIRED IMPORTED_TARGET lua5.2-c++)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(ZLIB REQUIRED IMPORTED_TARGET zlib)
pkg_check_modules(DEFLATE REQUIRED IMPORTED_TARGET libdeflate)

# wx-config knows the base library alone; CMake's own module would pull in the
# defaults of the GUI build.
find_program(WX_CONFIG NAMES wx-config REQUIRED)
execute_process(COMMAND ${WX_CONFIG} --cxxflags base
                OUTPUT_VARIABLE wx_flags OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${WX_CONFIG} --libs base
                OUTPUT_VARIABLE wx_libs OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(wx_flags)
separate_arguments(wx_libs)
set(wx_includes ${wx_flags})
list(FILTER wx_includes INCLUDE REGEX "^-I")
list(TRANSFORM wx_includes REPLACE "^-I" "")
list(FILTER wx_flags EXCLUDE REGEX "^-I")

add_library(kza_wx INTERFACE)
target_include_directories(kza_wx SYSTEM INTERFACE ${wx_includes})
target_compile_options(kza_wx INTERFACE ${wx_flags})
target_link_libraries(kza_wx INTERFACE ${wx_libs})
