#!/usr/bin/env bash
# Builds and runs tests/consumer, programs outside this tree, against an installed library, once
# through the CMake package and once through pkg-config: one links only the library, the other also
# the host platform's control interface (liborvexhost).
# Usage: scripts/consumer.sh [PREFIX]
#   without PREFIX: against the system's install (the Debian packages, scripts/package.sh);
#   with PREFIX: installs build/default into PREFIX first (no root needed; checks that the
#   pkg-config file and the CMake package find the prefix from where they are).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
prefix=${1:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ -n "$prefix" ]; then
    cmake --preset default >/dev/null
    cmake --build --preset default --target orvexlib orvexhost >/dev/null
    cmake --install build/default --prefix "$prefix" --component runtime >/dev/null
    cmake --install build/default --prefix "$prefix" --component dev >/dev/null
    libdir=$(dirname "$(find "$prefix" -name orvexlib.pc | head -n 1)")/..
    export PKG_CONFIG_PATH="$libdir/pkgconfig" CMAKE_PREFIX_PATH="$prefix"
    # The linker and the loader find liborvexhost, which liborvexlib needs, in the prefix.
    export LD_LIBRARY_PATH="$libdir"
fi

for mode in cmake pkg-config; do
    flag=OFF
    [ "$mode" = pkg-config ] && flag=ON
    cmake -S tests/consumer -B "$work/build-$mode" -G Ninja -DUSE_PKG_CONFIG=$flag >/dev/null
    cmake --build "$work/build-$mode" >/dev/null
    echo "consumer ($mode, ${prefix:-system install}):"
    ORVEX_HOST_HOME="$work/home-$mode" "$work/build-$mode/orvex_consumer"
    ORVEX_HOST_HOME="$work/host-$mode" "$work/build-$mode/orvex_host_consumer"
done
