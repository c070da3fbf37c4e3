# SPDX-License-Identifier: Apache-2.0
# kza_pack_archive(TARGET OUT DIRECTORY dir FILES file...): an archive of Lua
# modules. A relative file is one under the directory and keeps its path; an
# absolute one stands at the archive's root.

function(kza_pack_archive target out)
  cmake_parse_arguments(PACK "" "DIRECTORY" "FILES" ${ARGN})
  set(tree "${CMAKE_CURRENT_BINARY_DIR}/${target}.tree")
  set(sources)
  set(copies)
  set(names)
  foreach(file IN LISTS PACK_FILES)
    if(IS_ABSOLUTE "${file}")
      get_filename_component(name "${file}" NAME)
      list(APPEND sources "${file}")
    else()
      set(name "${file}")
      list(APPEND sources "${PACK_DIRECTORY}/${file}")
    endif()
    get_filename_component(place "${tree}/${name}" DIRECTORY)
    list(APPEND copies COMMAND ${CMAKE_COMMAND} -E make_directory "${place}")
    list(GET sources -1 source)
    list(APPEND copies COMMAND ${CMAKE_COMMAND} -E copy "${source}" "${place}")
    list(APPEND names "${name}")
  endforeach()
  get_filename_component(out_dir "${out}" DIRECTORY)
  add_custom_command(
    OUTPUT "${out}"
    COMMAND ${CMAKE_COMMAND} -E rm -rf "${tree}"
    ${copies}
    COMMAND ${CMAKE_COMMAND} -E make_directory "${out_dir}"
    COMMAND ${CMAKE_COMMAND} -E chdir "${tree}"
            ${CMAKE_COMMAND} -E tar cf "${out}" --format=zip -- ${names}
    DEPENDS ${sources}
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS "${out}")
endfunction()
