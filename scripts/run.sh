#!/usr/bin/env bash
# The main job: builds the library and the host tool and runs its demonstration on this machine's
# host platform. Extra arguments are passed to the tool instead (for example: scripts/run.sh settings);
# file arguments are taken relative to the directory it is run from.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
(
    cd "$root"
    bash scripts/deps.sh
    echo "Building liborvexlib and orvex (preset default)..." >&2
    cmake --preset default >/dev/null
    cmake --build --preset default --target orvex >/dev/null
)
orvex="$root/build/default/tools/orvex/orvex"
if [ $# -gt 0 ]; then
    exec "$orvex" "$@"
fi
exec "$orvex" demo
