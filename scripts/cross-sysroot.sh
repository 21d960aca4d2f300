#!/usr/bin/env bash
# Unpacks the Debian packages the cross build needs for ARCH (the libraries, their headers and
# everything they depend on) into DIR without installing them: a sysroot for a machine whose apt
# cannot install them beside its own packages. Multiarch needs the very versions of the native
# ones, which a mirror caught syncing one architecture does not have.
# Usage: scripts/cross-sysroot.sh ARCH DIR
#   then: ORVEX_CROSS_SYSROOT=DIR cmake --preset cross-ARCH (and the same for the build and ctest)
set -euo pipefail
arch=${1:?usage: scripts/cross-sysroot.sh ARCH DIR} dir=${2:?usage: scripts/cross-sysroot.sh ARCH DIR}

state=$(mktemp -d)
trap 'rm -rf "$state"' EXIT
chmod 755 "$state"
mkdir -p "$state/lists/partial" "$state/archives/partial"
: >"$state/status"
# A private apt state: the target architecture alone, nothing installed, the machine's sources.
apt=(apt-get -qq -o APT::Architecture="$arch" -o APT::Architectures::="$arch"
     -o Dir::State::Lists="$state/lists" -o Dir::State::status="$state/status"
     -o Dir::Cache="$state" -o Dir::Cache::archives="$state/archives" -o Debug::NoLocking=1)
"${apt[@]}" update || echo "scripts/cross-sysroot.sh: apt-get update reported errors (above)" >&2
"${apt[@]}" install --download-only -y --no-install-recommends libc6-dev libstdc++-12-dev \
    libglib2.0-dev libjson-glib-dev libcurl4-openssl-dev libsqlite3-dev libgtest-dev libgmock-dev \
    libgnutls28-dev >/dev/null

rm -rf "$dir"
mkdir -p "$dir"
for deb in "$state"/archives/*.deb; do dpkg-deb -x "$deb" "$dir"; done
echo "cross sysroot for $arch in $dir ($(ls "$state"/archives/*.deb | wc -l) packages)"
