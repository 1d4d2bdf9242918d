# The Debian package, and its debug symbols as one of their own; cpack makes both.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vyxsaverestore)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Whoever hands the package on puts a name and an address here; .invalid reaches nobody.
set(SAVERESTORE_CONTACT "VYXSaveRestore developers <vyxsaverestore@device.invalid>"
    CACHE STRING "Maintainer of the package, who also hears of weaknesses, as \"name <address>\"")
if(NOT SAVERESTORE_CONTACT MATCHES "^[^<>@]+ <[^<>@ ]+@[^<>@ ]+>$")
  message(FATAL_ERROR "SAVERESTORE_CONTACT is not of the form \"name <address>\": ${SAVERESTORE_CONTACT}")
endif()
set(CPACK_PACKAGE_CONTACT ${SAVERESTORE_CONTACT})
# The whole path is that of the target, also for the unit.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "save/restore service of a device's middleware
One process on D-Bus keeps a copy of the other modules' files, directories and
SQLite databases in a repository, which is a directory or an HTTP(S) server,
and puts them back from there.")

# The compiler knows for whom it builds; without dpkg-architecture the package is one for this machine.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpmachine OUTPUT_VARIABLE system OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND dpkg-architecture -f -t ${system} -qDEB_HOST_ARCH OUTPUT_VARIABLE architecture
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE unknown)
if(NOT unknown)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
endif()

set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What it runs, talks to, and loads only when its repository is a server.
string(JOIN ", " CPACK_DEBIAN_PACKAGE_DEPENDS sqlite3 dbus "libcurl4 (>= 7.87)")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm)
set(CPACK_STRIP_FILES ON)
# Whatever the umask of whoever packs.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# What cpack and its children find in their environment.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/environment.cmake "# dpkg-shlibdeps looks for libraries of this architecture.
set(ENV{DEB_HOST_ARCH} \"${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}\")
set(date_epoch \"${SAVERESTORE_DATE_EPOCH}\")
if(date_epoch)
  set(ENV{SOURCE_DATE_EPOCH} \${date_epoch})
endif()\n")
# cpack gives the parts of the package the modes that its umask has left them.
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/SameModes.cmake @ONLY CONTENT [[
foreach(package ${CPACK_PACKAGE_FILES})
  set(parts ${CPACK_TEMPORARY_DIRECTORY}-parts)
  file(REMOVE_RECURSE ${parts})
  file(MAKE_DIRECTORY ${parts})
  execute_process(COMMAND "@CMAKE_AR@" x ${package} WORKING_DIRECTORY ${parts} COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB data RELATIVE ${parts} ${parts}/data.tar.*)
  file(GLOB control RELATIVE ${parts} ${parts}/control.tar.*)
  file(REMOVE ${package})
  execute_process(COMMAND "@CMAKE_AR@" rcD ${package} debian-binary ${control} ${data}
                  WORKING_DIRECTORY ${parts} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
]])
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/SameModes.cmake)
if(CMAKE_BUILD_TYPE STREQUAL RelWithDebInfo)
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/DebugSymbols.cmake @ONLY CONTENT [[
set(PROGRAM "@CMAKE_RUNTIME_OUTPUT_DIRECTORY@/VYXSaveRestore")
set(OBJCOPY "@CMAKE_OBJCOPY@")
set(READELF "@CMAKE_READELF@")
include("@CMAKE_CURRENT_SOURCE_DIR@/DebugSymbols.cmake")
]])
  list(APPEND CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/DebugSymbols.cmake)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/environment.cmake)
include(CPack)
