# Where things go when they are installed. The parts of an installation are its components: library,
# flat, development, tools, application, udev.

set(VELA_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/gIIVela)

# The system's own folders need no search path; elsewhere what is installed finds its libraries by
# where it lies itself.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(VELA_LIBRARY_RPATH "")
  set(VELA_PROGRAM_RPATH "")
else()
  set(VELA_ORIGIN "$ORIGIN")
  if(APPLE)
    set(VELA_ORIGIN "@loader_path")
  endif()
  set(VELA_LIBRARY_RPATH "${VELA_ORIGIN}")
  set(VELA_PROGRAM_RPATH "${VELA_ORIGIN}/../${CMAKE_INSTALL_LIBDIR}")
endif()
