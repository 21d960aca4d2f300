#!/usr/bin/env bash
# The main job: builds the library and the host tool and runs its demonstration on this machine's
# host platform. Extra arguments are passed to the tool instead (for example: scripts/run.sh settings).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target orvex >/dev/null
orvex=build/default/tools/orvex/orvex
if [ $# -gt 0 ]; then
    exec "$orvex" "$@"
fi
exec "$orvex" demo
