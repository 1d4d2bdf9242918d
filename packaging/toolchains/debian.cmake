# What Debian's cross toolchains have in common; CROSS_TRIPLET names the one. Libraries of the target are in
# directories of its name beside those of this machine, so no root has to be changed.
set(CMAKE_CXX_COMPILER ${CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(PKG_CONFIG_EXECUTABLE ${CROSS_TRIPLET}-pkg-config CACHE FILEPATH "")

# Qt's own tools (moc) run here.
set(QT_HOST_PATH /usr CACHE PATH "")
file(GLOB host_tools /usr/lib/*/cmake/Qt6CoreTools/Qt6CoreToolsConfig.cmake)
list(FILTER host_tools EXCLUDE REGEX /${CROSS_TRIPLET}/)
foreach(config ${host_tools})
  string(REGEX REPLACE "/Qt6CoreTools/[^/]*$" "" host_packages ${config})
  set(QT_HOST_PATH_CMAKE_DIR ${host_packages} CACHE PATH "")
endforeach()
