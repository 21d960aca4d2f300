#!/usr/bin/env bash
# The cross job: installs the cross toolchain and the target's multiarch libraries, cross-builds
# everything for ARCH, runs the suite under qemu, then cross-builds the Debian packages (lint-checked
# by scripts/package.sh). Needs an apt that can install the target's libraries beside the machine's
# own; scripts/chroot.sh gives it one: scripts/chroot.sh -a armhf bash scripts/cross-check.sh
# Usage: scripts/cross-check.sh [armhf|arm64]   (default armhf)
set -euo pipefail
cd "$(dirname "$0")/.."
arch=${1:-armhf}
case "$arch" in
armhf) bash scripts/deps.sh cross ;;
arm64) bash scripts/deps.sh cross-arm64 ;;
*) echo "scripts/cross-check.sh: no cross preset for '$arch' (armhf, arm64)" >&2; exit 2 ;;
esac
cmake --preset "cross-$arch" >/dev/null
cmake --build --preset "cross-$arch"
ctest --preset "cross-$arch"
bash scripts/package.sh -a"$arch" -Pcross,nocheck
