#!/usr/bin/env bash
# Installs the Debian packages a purpose needs. Idempotent and quiet when everything is already there.
# Usage: scripts/deps.sh [PURPOSE...]
#   (none)   build and run the library and the tool (the main job)
#   test     the test suites: GoogleTest/GMock, the local HTTP/HTTPS servers, gpsd with its test
#            feeder, an SVG renderer, and systemd-analyze for the service's unit
#   fuzz     the libFuzzer targets (clang and its sanitizer runtime)
#   docs     the API documentation
#   bench    the benchmarks and the cost scripts
#   package  the Debian packages (cpack's DEB generator and dpkg-shlibdeps)
#   format   the formatting check (Debian's clang-format 14)
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config
    libglib2.0-dev libjson-glib-dev libcurl4-openssl-dev libsqlite3-dev
)
for purpose in "$@"; do
    case "$purpose" in
    test) packages+=(libgtest-dev libgmock-dev libgnutls28-dev openssl
                     ca-certificates gpsd gpsd-clients librsvg2-bin netpbm systemd) ;;
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    docs) packages+=(doxygen) ;;
    bench) packages+=(libbenchmark-dev libgnutls28-dev valgrind strace) ;;
    package) packages+=(dpkg-dev file) ;;
    format) packages+=(clang-format-14) ;;
    *)
        echo "scripts/deps.sh: unknown purpose '$purpose' (test, fuzz, docs, bench, package, format)" >&2
        exit 2
        ;;
    esac
done

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing missing packages: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
