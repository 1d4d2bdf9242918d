# Builds for Debian's architecture armhf on a Debian machine of another, with its cross compiler and the multiarch
# packages of the libraries; scripts/cross installs them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CROSS_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
