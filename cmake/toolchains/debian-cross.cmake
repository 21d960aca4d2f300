# Cross-compiling with Debian's cross toolchain (crossbuild-essential-<arch>) against the target's
# multiarch libraries (lib<name>-dev:<arch>), no sysroot: headers in /usr/include, libraries in
# /usr/lib/<triplet>. The including file sets CMAKE_SYSTEM_PROCESSOR, ORVEX_CROSS_TRIPLET and
# ORVEX_CROSS_QEMU. Programs built here (the tests, the tool that writes its manual page) run under
# qemu user-mode emulation, so no binfmt registration is needed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${ORVEX_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ORVEX_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ORVEX_CROSS_TRIPLET})
find_program(ORVEX_QEMU ${ORVEX_CROSS_QEMU} REQUIRED)

# pkgconf's wrapper reads the target's .pc files only.
set(PKG_CONFIG_EXECUTABLE /usr/bin/${ORVEX_CROSS_TRIPLET}-pkg-config CACHE FILEPATH "")
set(CMAKE_CROSSCOMPILING_EMULATOR ${ORVEX_QEMU})
