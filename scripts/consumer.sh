#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds and runs a small program against the
# installed tree, once through the CMake package and once through pkg-config.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target orvexlib orvexhost >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
cmake --install build/default --prefix "$prefix" >/dev/null
libdir=$(ls -d "$prefix"/lib*/ | head -n 1)

for mode in cmake pkg-config; do
    flag=OFF
    [ "$mode" = pkg-config ] && flag=ON
    PKG_CONFIG_PATH="$libdir/pkgconfig" cmake -S tests/consumer -B "$work/build-$mode" -G Ninja \
        -DCMAKE_PREFIX_PATH="$prefix" -DUSE_PKG_CONFIG=$flag >/dev/null
    cmake --build "$work/build-$mode" >/dev/null
    echo "consumer ($mode):"
    ORVEX_HOST_HOME="$work/home-$mode" LD_LIBRARY_PATH="$libdir" "$work/build-$mode/orvex_consumer"
done
