#!/usr/bin/env bash
# Builds the Debian packages from debian/ with dpkg-buildpackage: liborvexlib1 (the shared libraries),
# liborvexlib-dev (headers, pkg-config file, CMake package) and orvex (the tool and its manual page),
# and checks them and the .changes file with lintian, which must report nothing.
# Usage: scripts/package.sh [-aARCH] [-PPROFILE,...]   (passed to dpkg-buildpackage)
#   scripts/package.sh                    native packages, test suite included
#   scripts/package.sh -Pnocheck          without building and running the test suite
#   scripts/package.sh -aarmhf -Pcross,nocheck   cross-built for armhf (scripts/deps.sh cross first)
# The packages end up in build/packages/ (earlier ones of the same architecture are replaced).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh package

# dpkg-buildpackage works in a copy of the tree (tracked and new files, not build/), because it
# writes its results next to the source directory and its objects into it.
version=$(dpkg-parsechangelog -SVersion)
top=$PWD/build/debian
rm -rf "$top"
mkdir -p build/packages
bash scripts/copy-tree.sh "$top/orvexlib-$version"

(cd "$top/orvexlib-$version" && dpkg-buildpackage -us -uc -b "$@")

changes=$(ls "$top"/*.changes)
arch=${changes##*_}
arch=${arch%.changes}
echo "== lintian"
lintian --fail-on error,warning "$changes"
rm -f build/packages/*_"$arch".deb
mv "$top"/*.deb build/packages/
ls build/packages/*_"$arch".deb
