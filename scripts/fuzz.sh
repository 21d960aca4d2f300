#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz preset: clang, ASan+UBSan) and runs each for a while on a copy
# of its seed corpus. Usage: scripts/fuzz.sh [SECONDS_PER_TARGET] (default 60).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh fuzz
seconds=${1:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ORVEX_HOST_HOME="$work/home"
# The parser gets bodies long enough to nest far deeper than any answer; the string helpers work on
# short texts.
declare -A max_len=([weather_parser]=1048576 [string_util]=8192)
for target in weather_parser string_util; do
    mkdir -p "$work/$target"
    cp fuzz/corpus/$target/* "$work/$target/"
    echo "== fuzz_$target for ${seconds}s"
    if ! build/fuzz/fuzz/fuzz_$target -max_total_time="$seconds" -max_len="${max_len[$target]}" \
        -artifact_prefix="$work/" "$work/$target" >"$work/$target.log" 2>&1; then
        tail -n 40 "$work/$target.log"
        echo "fuzz_$target found a problem"
        exit 1
    fi
    grep -E "^Done" "$work/$target.log"
done
