#!/usr/bin/env bash
# Copies the source tree into DIR: the tracked files and the new ones (not build/, nothing ignored),
# or, in a copy that has no history, everything but build/.
# Usage: scripts/copy-tree.sh DIR   (from the repository root)
set -euo pipefail
dir=${1:?usage: scripts/copy-tree.sh DIR}
mkdir -p "$dir"
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' f; do [ -e "$f" ] && printf '%s\0' "$f"; done |
        tar -c --null -T - | tar -x -C "$dir"
else
    tar -c --exclude=./build --exclude=./.git . | tar -x -C "$dir"
fi
