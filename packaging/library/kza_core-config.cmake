# SPDX-License-Identifier: Apache-2.0
# find_package(kza_core): the target kza::core, with what its headers need.

include("${CMAKE_CURRENT_LIST_DIR}/PublicDependencies.cmake")
if(KZA_MISSING)
  set(kza_core_FOUND FALSE)
  set(kza_core_NOT_FOUND_MESSAGE "kza_core needs: ${KZA_MISSING}")
  return()
endif()
include("${CMAKE_CURRENT_LIST_DIR}/kza_core-targets.cmake")
