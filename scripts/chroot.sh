#!/usr/bin/env bash
# Runs a command on a copy of the tree inside a fresh Debian 12 chroot, made by mmdebstrap and thrown
# away afterwards, as sbuild builds packages: nothing of this machine's installed packages or of its
# apt state takes part. The chroot knows the build machine's architecture and the foreign ones given
# with -a, so multiarch cross builds work there even when this machine's own apt cannot install the
# foreign libraries (its packages newer than a mirror's foreign index, say). Packages the command
# leaves in build/packages/ are copied back to build/packages/.
# Usage: scripts/chroot.sh [-a ARCH]... COMMAND [ARG...]    (run as root; the command runs in /src)
#   scripts/chroot.sh -a armhf bash scripts/cross-check.sh armhf    (CI's armhf job)
# ORVEX_CHROOT_MIRROR replaces the Debian mirror (default http://deb.debian.org/debian).
set -euo pipefail
cd "$(dirname "$0")/.."

arches=$(dpkg --print-architecture)
while getopts a: opt; do
    case "$opt" in
    a) arches+=",$OPTARG" ;;
    *) echo "usage: scripts/chroot.sh [-a ARCH]... COMMAND [ARG...]" >&2; exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[ $# -gt 0 ] || { echo "usage: scripts/chroot.sh [-a ARCH]... COMMAND [ARG...]" >&2; exit 2; }
[ "$(id -u)" -eq 0 ] || { echo "scripts/chroot.sh: needs root (mmdebstrap's root mode)" >&2; exit 2; }
bash scripts/deps.sh chroot

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/out"
bash scripts/copy-tree.sh "$work/src"
mkdir -p "$work/src/build/packages"
{
    echo 'set -e; cd /src'
    printf 'exec'
    printf ' %q' "$@"
    echo
} >"$work/orvex-chroot-command"

mirror=${ORVEX_CHROOT_MIRROR:-http://deb.debian.org/debian}
# Security updates are left out: an index a mirror has not finished syncing for one architecture
# would break the multiarch installs this chroot is for, and nothing built here is shipped from it.
mmdebstrap --quiet --variant=buildd --architectures="$arches" --include=ca-certificates \
    --customize-hook="copy-in $work/src $work/orvex-chroot-command /" \
    --customize-hook='chroot "$1" bash /orvex-chroot-command' \
    --customize-hook="sync-out /src/build/packages $work/out" \
    bookworm /dev/null "deb $mirror bookworm main" "deb $mirror bookworm-updates main"

mkdir -p build/packages
if compgen -G "$work/out/*.deb" >/dev/null; then
    for deb in "$work"/out/*.deb; do
        # A package of the same name and architecture replaces the earlier one.
        name=$(basename "$deb")
        rm -f build/packages/"${name%%_*}"_*_"${name##*_}"
        cp "$deb" build/packages/
    done
fi
