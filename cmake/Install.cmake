# Where things are installed, and how they find each other.

set(VELA_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/gIIVela)

# The folders of the installation. Missing ones are created first, with access for everybody: CMake
# itself creates them as the umask says.
set(VELA_INSTALL_FOLDERS
  ${CMAKE_INSTALL_BINDIR}
  ${CMAKE_INSTALL_LIBDIR}/cmake/gIIVela
  ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  ${VELA_INSTALL_INCLUDEDIR}
  ${CMAKE_INSTALL_DOCDIR}/examples
  ${CMAKE_INSTALL_MANDIR}/man1
  ${CMAKE_INSTALL_DATADIR}/applications
  ${CMAKE_INSTALL_DATADIR}/metainfo)
set(VELA_ICON_SIZES 16 24 32 48 64 128 256)
foreach(size IN LISTS VELA_ICON_SIZES)
  list(APPEND VELA_INSTALL_FOLDERS ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()
list(APPEND VELA_INSTALL_FOLDERS ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
if(NOT APPLE)
  list(APPEND VELA_INSTALL_FOLDERS lib/udev/rules.d)
endif()
install(CODE "set(folders \"${VELA_INSTALL_FOLDERS}\")")
install(SCRIPT cmake/MakeFolders.cmake)

# With absolute paths, the identity of what is built would depend on the path of the build folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# The system's own folders need no search path. Elsewhere, what is installed finds its libraries
# relative to its own place.
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
