#!/bin/sh
# Instructions (callgrind) and system calls (strace) per operation of the host's hot paths:
# each operation runs N and 2N times and the difference is divided by N, so set-up cost drops out.
#   bench/host_cost.sh [BENCH_EXECUTABLE] [N]
set -eu
bench=${1:-build/default/bench/orvex_host_bench}
n=${2:-200}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
export ORVEX_HOST_LOG_LEVEL=silent TMPDIR="$tmp"

instructions() {  # OP COUNT
    valgrind --tool=callgrind --callgrind-out-file="$tmp/cg.out" "$bench" --run "$1" "$2" \
        >/dev/null 2>&1
    callgrind_annotate "$tmp/cg.out" 2>/dev/null | awk '/PROGRAM TOTALS/ {gsub(",", "", $1); print $1}'
}

syscalls() {  # OP COUNT
    strace -f -c -o "$tmp/strace.out" "$bench" --run "$1" "$2" >/dev/null 2>&1
    awk '$NF == "total" {print $4}' "$tmp/strace.out"
}

printf '%-10s %14s %14s\n' operation instructions syscalls
for op in pref key sensor altitude live; do
    i1=$(instructions "$op" "$n")
    i2=$(instructions "$op" $((2 * n)))
    s1=$(syscalls "$op" "$n")
    s2=$(syscalls "$op" $((2 * n)))
    printf '%-10s %14s %14s\n' "$op" "$(( (i2 - i1) / n ))" \
        "$(echo "$s1 $s2 $n" | awk '{printf "%.1f", ($2 - $1) / $3}')"
done
