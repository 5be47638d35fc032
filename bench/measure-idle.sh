#!/usr/bin/env bash
# Measures what vxd costs while it waits: starts it with no surface attached and
# an empty configuration folder, lets it run (30 s by default), and prints its
# CPU use over that time and its resident memory at the end. Not a test: the
# figures depend on the machine. Usage: bench/measure-idle.sh [VXD] [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
vxd=${1:-build/default/src/app/vxd}
seconds=${2:-30}
[ -x "$vxd" ] || { echo "no vxd at $vxd (build the default preset first)" >&2; exit 1; }

config=$(mktemp -d)
trap 'rm -rf "$config"' EXIT
XDG_CONFIG_HOME=$config "$vxd" >"$config/vxd.log" 2>&1 &
pid=$!
# Nanoseconds on a CPU, every thread included: finer than the clock ticks of
# /proc/PID/stat, which would round a 30 s idle run to a handful of ticks.
cpu_ns() { cat /proc/$pid/task/*/schedstat | awk '{ ns += $1 } END { print ns }'; }

sleep 1  # start-up is not what this measures
start=$(cpu_ns)
sleep "$seconds"
end=$(cpu_ns)
rss_kb=$(awk '/^VmRSS:/ { print $2 }' "/proc/$pid/status")
kill -TERM "$pid"
wait "$pid" && status=0 || status=$?

awk -v ns="$((end - start))" -v s="$seconds" -v rss="$rss_kb" -v st="$status" 'BEGIN {
    printf "vxd idle for %d s: CPU %.3f %% of one core, resident memory %.1f MB, exit status %d\n",
           s, 100 * ns / 1e9 / s, rss / 1024, st
}'
