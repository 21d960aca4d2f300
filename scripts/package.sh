#!/usr/bin/env bash
# Builds the Debian packages (preset package: installed under /usr) with `cpack -G DEB`:
# liborvexlib1 (the shared libraries), liborvexlib-dev (headers, pkg-config file, CMake package) and
# orvex (the tool). They are written to build/package/packages/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh package
cmake --preset package >/dev/null
cmake --build --preset package
rm -f build/package/packages/*.deb
(cd build/package && cpack -G DEB >/dev/null)
ls build/package/packages/*.deb
