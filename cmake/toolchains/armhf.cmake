# Debian armhf (ARMv7, hard float), the watch's CPU: cmake --preset cross-armhf.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(ORVEX_CROSS_TRIPLET arm-linux-gnueabihf)
set(ORVEX_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
