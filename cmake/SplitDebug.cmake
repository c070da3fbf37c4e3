# SPDX-License-Identifier: Apache-2.0
# kza_split_debug(TARGET directory): takes the debug information out of an
# installed file and into debug/<file>.debug, which debuggers find by the link
# left behind and by the build identifier.

function(kza_split_debug target directory)
  install(CODE "
    set(root \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    set(installed \"\${root}/${directory}/$<TARGET_FILE_NAME:${target}>\")
    set(debug \"\${root}/debug/$<TARGET_FILE_NAME:${target}>.debug\")
    file(MAKE_DIRECTORY \"\${root}/debug\")
    # From the built file: the installed one may have been through this.
    execute_process(
      COMMAND \"${CMAKE_OBJCOPY}\" --only-keep-debug
              \"$<TARGET_FILE:${target}>\" \"\${debug}\"
      COMMAND_ERROR_IS_FATAL ANY)
    file(CHMOD \"\${debug}\"
         PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    execute_process(
      COMMAND \"${CMAKE_OBJCOPY}\" --strip-unneeded
              --remove-section=.gnu_debuglink
              \"--add-gnu-debuglink=\${debug}\" \"\${installed}\"
      COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT agent)
endfunction()
