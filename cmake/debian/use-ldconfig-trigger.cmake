# Run by CPack after the packages are made. CPack gives a package with a shared
# library postinst and postrm scripts that call ldconfig; Debian asks for the
# ldconfig trigger instead (the triggers file the package already carries), so
# the scripts are taken out of libqorc0 and the package is put together again.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  get_filename_component(name ${package} NAME)
  if(NOT name MATCHES "^libqorc[0-9]+_")
    continue()
  endif()
  set(tree ${CPACK_TOPLEVEL_DIRECTORY}/unpacked-${name})
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  foreach(script postinst postrm)
    file(STRINGS ${tree}/DEBIAN/${script} lines)
    foreach(line IN LISTS lines)
      if(NOT line MATCHES "^(#.*|set -e|if \\[ \"\\$1\" = \"(configure|remove)\" \\]; then|[ \t]*ldconfig|fi|[ \t]*)$")
        message(FATAL_ERROR "${name}: ${script} does more than call ldconfig: ${line}")
      endif()
    endforeach()
    file(REMOVE ${tree}/DEBIAN/${script})
  endforeach()
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${tree} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
