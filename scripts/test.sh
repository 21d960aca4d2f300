#!/usr/bin/env bash
# Builds and runs the test suite. With no argument the default preset; otherwise every preset named
# (default, debug, asan, tsan). tsan runs the threading and HTTP suites.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh test

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(default)
for preset in "${presets[@]}"; do
    echo "== $preset: configure and build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    echo "== $preset: test"
    ctest --preset "$preset"
done
