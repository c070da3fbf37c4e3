# SPDX-License-Identifier: Apache-2.0
# kza_pack_archive(TARGET OUT dir...): an archive of Lua modules.

function(kza_pack_archive target out)
  cmake_parse_arguments(PACK "" "DIRECTORY" "FILES" ${ARGN})
  list(TRANSFORM PACK_FILES PREPEND "${PACK_DIRECTORY}/" OUTPUT_VARIABLE sources)
  get_filename_component(out_dir "${out}" DIRECTORY)
  file(MAKE_DIRECTORY "${out_dir}")
  add_custom_command(
    OUTPUT "${out}"
    COMMAND ${CMAKE_COMMAND} -E tar cf "${out}" --format=zip -- ${PACK_FILES}
    WORKING_DIRECTORY "${PACK_DIRECTORY}"
    DEPENDS ${sources}
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS "${out}")
endfunction()
