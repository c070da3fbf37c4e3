# SPDX-License-Identifier: Apache-2.0
# The libraries that the agent calls, each as one imported target.

set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)
include(PublicDependencies)
if(KZA_MISSING)
  message(FATAL_ERROR "Not found: ${KZA_MISSING}")
endif()
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
if(KZA_AGENT)
  find_package(nlohmann_json REQUIRED)
endif()
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(ZLIB REQUIRED IMPORTED_TARGET zlib)
pkg_check_modules(DEFLATE REQUIRED IMPORTED_TARGET libdeflate)
