# Debian arm64 (AArch64) boards: cmake --preset cross-arm64.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ORVEX_CROSS_TRIPLET aarch64-linux-gnu)
set(ORVEX_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
