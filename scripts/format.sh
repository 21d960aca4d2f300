#!/usr/bin/env bash
# Formats the tracked C and C++ sources with Debian's clang-format 14 and the repository's
# .clang-format. With --check it changes nothing, lists the files that differ and fails if any do.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh format
mode=${1:-}
mapfile -t files < <(git ls-files -- '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')
if [ "$mode" != --check ]; then
    clang-format-14 -i "${files[@]}"
    exit 0
fi
off=()
for f in "${files[@]}"; do
    clang-format-14 --dry-run -Werror "$f" >/dev/null 2>&1 || off+=("$f")
done
if [ ${#off[@]} -gt 0 ]; then
    printf 'not formatted (scripts/format.sh fixes it): %s\n' "${off[@]}" >&2
    exit 1
fi
echo "format: ${#files[@]} files clean"
