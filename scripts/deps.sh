#!/usr/bin/env bash
# Installs the Debian packages a purpose needs. Idempotent and quiet when everything is already there.
# Usage: scripts/deps.sh [PURPOSE...]
#   (none)   build and run the library and the tool (the main job)
#   test     the test suites: GoogleTest/GMock, the local HTTP/HTTPS servers, gpsd with its test
#            feeder, an SVG renderer, and systemd-analyze for the service's unit
#   fuzz     the libFuzzer targets (clang and its sanitizer runtime)
#   docs     the API documentation
#   bench    the benchmarks and the cost scripts
#   package  the Debian packages: debhelper, lintian and everything debian/control builds with
#   abi      the binary-interface check (abigail's abidw and abidiff)
#   cross    the armhf cross build and its tests: Debian's cross toolchain, the armhf libraries
#            (multiarch) and qemu user-mode emulation; cross-arm64 the same for arm64
#   chroot   scripts/chroot.sh's throw-away Debian chroots (mmdebstrap)
#   format   the formatting check (Debian's clang-format 14)
set -euo pipefail

test_packages=(libgtest-dev libgmock-dev libgnutls28-dev openssl ca-certificates gpsd gpsd-clients
               librsvg2-bin netpbm systemd)
packages=(
    build-essential cmake ninja-build pkg-config
    libglib2.0-dev libjson-glib-dev libcurl4-openssl-dev libsqlite3-dev
)
foreign=()
for purpose in "$@"; do
    case "$purpose" in
    test) packages+=("${test_packages[@]}") ;;
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    docs) packages+=(doxygen) ;;
    bench) packages+=(libbenchmark-dev libgnutls28-dev valgrind strace) ;;
    package) packages+=(dpkg-dev debhelper lintian "${test_packages[@]}") ;;
    abi) packages+=(abigail-tools) ;;
    cross | cross-arm64)
        # armhf is the watch's CPU; arm64 that of many boards.
        arch=armhf
        [ "$purpose" = cross-arm64 ] && arch=arm64
        foreign+=("$arch")
        # The tests run the build machine's programs (openssl, gpsfake, rsvg-convert) natively.
        packages+=(crossbuild-essential-"$arch" qemu-user dpkg-dev "${test_packages[@]}")
        # pkgconf of the target architecture brings its <triplet>-pkg-config.
        for p in libglib2.0-dev libjson-glib-dev libcurl4-openssl-dev libsqlite3-dev libgtest-dev \
                 libgmock-dev libgnutls28-dev pkgconf; do
            packages+=("$p:$arch")
        done
        ;;
    chroot) packages+=(mmdebstrap) ;;
    format) packages+=(clang-format-14) ;;
    *)
        echo "scripts/deps.sh: unknown purpose '$purpose'" \
             "(test, fuzz, docs, bench, package, abi, cross, cross-arm64, chroot, format)" >&2
        exit 2
        ;;
    esac
done

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
for arch in "${foreign[@]}"; do
    dpkg --print-foreign-architectures | grep -qx "$arch" || $sudo dpkg --add-architecture "$arch"
done

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing missing packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# An index that fails to download (a mirror caught syncing one architecture) is reported but does
# not stop the install: what it needs from the other indices may well be there.
$sudo apt-get update -qq || echo "scripts/deps.sh: apt-get update reported errors (above)" >&2
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
