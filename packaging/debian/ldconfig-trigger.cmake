# Run by CPack on the packages it has made: the loader's cache is renewed by dpkg's trigger and not by
# the maintainer scripts that CPack gives to libraries.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "/lib[a-z]+[0-9]+_[^/]*\\.deb$")
    continue()
  endif()
  set(tree ${package}.tree)
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  file(WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
  execute_process(COMMAND dpkg-deb --root-owner-group --build ${tree} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
