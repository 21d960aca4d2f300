# Cross-compiling with Debian's cross toolchain (crossbuild-essential-<arch>) against the target's
# multiarch libraries (lib<name>-dev:<arch>), no sysroot: headers in /usr/include, libraries in
# /usr/lib/<triplet>; or, with ORVEX_CROSS_SYSROOT in the environment, against the same packages
# unpacked into that directory (scripts/cross-sysroot.sh). The including file sets CMAKE_SYSTEM_PROCESSOR, ORVEX_CROSS_TRIPLET and
# ORVEX_CROSS_QEMU. Programs built here (the tests, the tool that writes its manual page) run under
# qemu user-mode emulation, so no binfmt registration is needed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${ORVEX_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ORVEX_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ORVEX_CROSS_TRIPLET})
find_program(ORVEX_QEMU ${ORVEX_CROSS_QEMU} REQUIRED)

if(DEFINED ENV{ORVEX_CROSS_SYSROOT})
  # The target's packages unpacked into a directory (scripts/cross-sysroot.sh) rather than
  # installed through multiarch: compiler, linker, pkg-config and qemu look there.
  set(_sysroot $ENV{ORVEX_CROSS_SYSROOT})
  set(CMAKE_SYSROOT ${_sysroot})
  set(CMAKE_FIND_ROOT_PATH ${_sysroot})
  set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${_sysroot})
  set(ENV{PKG_CONFIG_LIBDIR}
      ${_sysroot}/usr/lib/${ORVEX_CROSS_TRIPLET}/pkgconfig:${_sysroot}/usr/share/pkgconfig)
  set(PKG_CONFIG_EXECUTABLE /usr/bin/pkgconf CACHE FILEPATH "")
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ORVEX_QEMU} -L ${_sysroot})
else()
  # pkgconf's wrapper reads the target's .pc files only.
  set(PKG_CONFIG_EXECUTABLE /usr/bin/${ORVEX_CROSS_TRIPLET}-pkg-config CACHE FILEPATH "")
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ORVEX_QEMU})
endif()
