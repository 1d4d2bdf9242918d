# The debug symbols of PROGRAM as a package of their own, beside the package that cpack has just made. A debugger finds
# them by the build's identifier. cpack can make one, too, but with the paths of the build in it.

execute_process(COMMAND ${READELF} -n ${PROGRAM} OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
  message(FATAL_ERROR "${PROGRAM} has no build identifier to find its debug symbols by")
endif()
set(name ${CPACK_PACKAGE_NAME}-dbgsym)
set(tree ${CPACK_TEMPORARY_DIRECTORY}-dbgsym)
set(symbols usr/lib/debug/.build-id/${CMAKE_MATCH_1}/${CMAKE_MATCH_2}.debug)

file(REMOVE_RECURSE ${tree})
get_filename_component(directory ${tree}/${symbols} DIRECTORY)
file(MAKE_DIRECTORY ${directory} ${tree}/usr/share/doc ${tree}/DEBIAN)
execute_process(COMMAND ${OBJCOPY} --only-keep-debug ${PROGRAM} ${tree}/${symbols} COMMAND_ERROR_IS_FATAL ANY)
file(MD5 ${tree}/${symbols} sum)
file(WRITE ${tree}/DEBIAN/md5sums "${sum}  ${symbols}\n")
file(SIZE ${tree}/${symbols} bytes)
math(EXPR kilobytes "${bytes} / 1024 + 1")
file(WRITE ${tree}/DEBIAN/control "Package: ${name}
Version: ${CPACK_PACKAGE_VERSION}
Architecture: ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}
Maintainer: ${CPACK_PACKAGE_CONTACT}
Installed-Size: ${kilobytes}
Depends: ${CPACK_PACKAGE_NAME} (= ${CPACK_PACKAGE_VERSION})
Section: debug
Priority: optional
Auto-Built-Package: debug-symbols
Build-Ids: ${CMAKE_MATCH_1}${CMAKE_MATCH_2}
Description: debug symbols for ${CPACK_PACKAGE_NAME}\n")
set(readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(searchable ${readable} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
file(CHMOD_RECURSE ${tree} FILE_PERMISSIONS ${readable} DIRECTORY_PERMISSIONS ${searchable})
file(CREATE_LINK ${CPACK_PACKAGE_NAME} ${tree}/usr/share/doc/${name} SYMBOLIC)
# The number of threads would show in what they make.
execute_process(COMMAND dpkg-deb --root-owner-group --threads-max=1 -Zxz -z1 --build ${tree}
                        ${CPACK_PACKAGE_DIRECTORY}/${name}_${CPACK_PACKAGE_VERSION}_${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}.deb
                COMMAND_ERROR_IS_FATAL ANY)
