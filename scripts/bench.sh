#!/usr/bin/env bash
# The performance figures: installs what is missing, builds quen in Release, then prints the
# micro-benchmarks beside their floors of unavoidable system calls (quen-bench: the median of
# three repetitions, then the table of ratios) and the whole-daemon figures against the
# simulated phone (quen-perf: CPU per simulated day, memory, storage writes, idle wake-ups,
# event-to-limit latency). About three minutes on a 2-core machine.
# Usage: scripts/bench.sh [BUILD_DIR] [quen-perf options: --days N --speed N --events N ...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
dir="${1:-build-bench}"
shift || true
scripts/build.sh "$dir" -DCMAKE_BUILD_TYPE=Release -DQUEN_BUILD_TESTS=OFF -DQUEN_BUILD_BENCH=ON
echo "== Micro-benchmarks (quen-bench)"
"$dir/bench/quen-bench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
  --benchmark_min_time=0.2
echo
echo "== Whole daemon (quen-perf)"
exec "$dir/sim/perf/quen-perf" "$@"
