#!/usr/bin/env bash
# Simulator speed: builds quen and quen-sim as scripts/simulate.sh does, runs the default scenario on the virtual clock for
# DAYS simulated days (default 365) RUNS times (default 3) with the daemon alone (no baseline),
# and prints each run's simulated days per second, the daemon's CPU time per simulated day and
# its wake-ups per simulated day, then the median of each.
# Usage: scripts/bench-sim.sh [DAYS] [RUNS] [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
days="${1:-365}"
runs="${2:-3}"
dir="${3:-build-run}"
scripts/setup.sh
scripts/build.sh "$dir" -DQUEN_BUILD_TESTS=OFF -DQUEN_BUILD_BENCH=OFF
out=$(mktemp -d /tmp/quen-bench-sim-XXXXXX)
trap 'rm -rf "$out"' EXIT
echo "== quen-sim, default scenario, $days simulated days on the virtual clock, $runs runs ($(nproc) cores)"
for i in $(seq 1 "$runs"); do
  "$dir/sim/runner/quen-sim" sim/scenarios/default.json --days "$days" --no-baseline \
    --out "$out/run" 2>&1 | grep "simulated days in" | sed 's/^quen-sim: arm default: /  /'
done | tee "$out/figures"
median() { sort -g | awk '{v[NR]=$1} END {print (NR % 2) ? v[(NR+1)/2] : (v[NR/2] + v[NR/2+1]) / 2}'; }
echo "median: $(sed -E 's/.*\(([0-9.]+) days\/s.*/\1/' "$out/figures" | median) simulated days/s," \
  "$(sed -E 's/.*daemon CPU ([0-9.]+) s.*/\1/' "$out/figures" | median) s daemon CPU per simulated day," \
  "$(sed -E 's/.*day, ([0-9]+) wake-ups.*/\1/' "$out/figures" | median) wake-ups per simulated day"
