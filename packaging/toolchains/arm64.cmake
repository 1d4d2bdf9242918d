# Builds for Debian's architecture arm64 on a Debian machine of another, with its cross compiler and the multiarch
# packages of the libraries; scripts/cross installs them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CROSS_TRIPLET aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
