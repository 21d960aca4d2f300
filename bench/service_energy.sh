#!/bin/sh
# What the background service costs while it only records: the simulated sensor, a fresh data
# directory, auto-refresh off and no other client. After a first minute of start-up it watches the
# service for MINUTES more and prints CPU seconds per hour, wake-ups (voluntary context switches)
# per minute and the resident memory at 1 minute and at the end; then it counts the system calls
# of two more minutes under strace (which would inflate the other figures).
#   bench/service_energy.sh [TOOL] [MINUTES]   (defaults: build/default/tools/orvex/orvex, 10)
set -eu
tool=${1:-build/default/tools/orvex/orvex}
minutes=${2:-10}
tmp=$(mktemp -d)
export ORVEX_HOST_HOME="$tmp/home" ORVEX_HOST_SENSOR_BACKEND=sim \
    ORVEX_HOST_LOCATION_BACKEND=fixed ORVEX_HOST_LOG_LEVEL=silent
"$tool" init >/dev/null
"$tool" service 2>"$tmp/service.log" &
pid=$!
trap 'kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true; rm -rf "$tmp"' EXIT

# Nanoseconds on a CPU, every thread: finer than the clock ticks of /proc/PID/stat.
cpu() { cat /proc/"$pid"/task/*/schedstat | awk '{n += $1} END {printf "%.4f", n / 1e9}'; }
switches() { cat /proc/"$pid"/task/*/status | awk '/^voluntary_ctxt_switches/ {n += $2} END {print n}'; }
rss() { awk '/^VmRSS/ {print $2}' "/proc/$pid/status"; }

sleep 60
cpu1=$(cpu) sw1=$(switches) rss1=$(rss)
sleep $((minutes * 60))
cpu2=$(cpu) sw2=$(switches) rss2=$(rss)
strace -f -c -o "$tmp/strace.out" -p "$pid" 2>/dev/null &
tracer=$!
sleep 120
kill -INT "$tracer"
wait "$tracer" || true
calls=$(awk '$NF == "total" {print $4}' "$tmp/strace.out")

echo "service over $minutes minutes after its first (sim sensor, no other client)"
echo "CPU, first minute (start-up)     $cpu1 s"
awk -v a="$cpu1" -v b="$cpu2" -v m="$minutes" \
    'BEGIN {printf "CPU per hour                     %.3f s (goal <= 2 s)\n", (b - a) * 60 / m}'
awk -v a="$sw1" -v b="$sw2" -v m="$minutes" \
    'BEGIN {printf "wake-ups per minute              %.1f\n", (b - a) / m}'
awk -v c="${calls:-0}" 'BEGIN {printf "system calls per minute          %.1f\n", c / 2}'
printf '%-33s%s KiB\n' "RSS at 1 minute" "$rss1"
printf '%-33s%s KiB (goal: no growth)\n' "RSS at $((minutes + 1)) minutes" "$rss2"
