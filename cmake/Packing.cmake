# SPDX-License-Identifier: Apache-2.0
# kza_pack_archive(TARGET OUT DEPENDS file... INPUTS path...): an archive made
# with kzpack by the agent that was just built, out of directories and files.
# The side file OUT.version appears beside it.

function(kza_pack_archive target out)
  cmake_parse_arguments(PACK "" "" "DEPENDS;INPUTS" ${ARGN})
  get_filename_component(out_dir "${out}" DIRECTORY)
  add_custom_command(
    OUTPUT "${out}" "${out}.version"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${out_dir}"
    COMMAND kz_agent --appname kzpack
            --workdir "${PROJECT_BINARY_DIR}/kzpack.work"
            --lua_path "${PROJECT_SOURCE_DIR}/lua/?.lua"
            -- archive "${out}" ${PACK_INPUTS}
    DEPENDS kz_agent ${PACK_DEPENDS}
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS "${out}")
endfunction()
