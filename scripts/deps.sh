#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need. Idempotent and quiet when
# everything is already there.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config
    libglib2.0-dev libjson-glib-dev libcurl4-openssl-dev libsqlite3-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libmicrohttpd-dev libgnutls28-dev openssl ca-certificates
    clang libclang-rt-14-dev clang-format doxygen sqlite3
)

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
