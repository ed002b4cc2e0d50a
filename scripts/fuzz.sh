#!/usr/bin/env bash
# Fuzzes every input the daemon parses: builds the libFuzzer targets of fuzz/ (clang,
# AddressSanitizer + UndefinedBehaviorSanitizer) in build-fuzz and runs each one for
# SECONDS_PER_TARGET seconds (default 30), starting from a scratch copy of its seed corpus
# (fuzz/corpus/<target>, left untouched) and its regression inputs (fuzz/regressions/<target>).
# Prints one line per target with its executions and executions per second; exits 1 when a
# target crashed, leaked or hung, naming the input that did it. A found input is kept in the
# scratch directory; once the fault is fixed, copy it to fuzz/regressions/<target>/ so that
# the normal test suite replays it (ctest -R fuzz_replay).
#
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET]
#   QUEN_FUZZ_TARGETS="config transport" limits the run to those targets.
#
# A longer campaign runs one target at a time with libFuzzer's own options and keeps the
# corpus it grows, for example four hours of the configuration target on every core:
#   scripts/fuzz.sh 1                                   # builds build-fuzz
#   mkdir -p /tmp/corpus-config && cp fuzz/corpus/config/* /tmp/corpus-config/
#   build-fuzz/fuzz/config_fuzz -max_total_time=14400 -fork="$(nproc)" -timeout=25 \
#       -artifact_prefix=/tmp/crash-config- /tmp/corpus-config fuzz/regressions/config
# and then merges what is worth keeping back into the seeds (a minimal covering set):
#   build-fuzz/fuzz/config_fuzz -merge=1 fuzz/corpus/config /tmp/corpus-config
set -euo pipefail
cd "$(dirname "$0")/.."
secs="${1:-30}"
if ! [[ "$secs" =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: scripts/fuzz.sh [SECONDS_PER_TARGET]" >&2
  exit 2
fi

scripts/setup.sh
. scripts/ccache-args.sh
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja "${launcher[@]}" -DQUEN_BUILD_FUZZ=ON \
  -DQUEN_BUILD_TESTS=OFF -DQUEN_BUILD_BENCH=OFF >/dev/null
ninja -C build-fuzz quen_fuzz >/dev/null

if [ -n "${QUEN_FUZZ_TARGETS:-}" ]; then
  read -r -a targets <<<"$QUEN_FUZZ_TARGETS"
else
  targets=()
  for f in fuzz/*_fuzz.cpp; do
    f=${f#fuzz/}
    targets+=("${f%_fuzz.cpp}")
  done
fi

scratch=$(mktemp -d "${TMPDIR:-/tmp}/quen-fuzz.XXXXXX")
# The targets' device roots: on a memory file system when there is one (records are synced).
roots_base=/dev/shm
[ -w "$roots_base" ] || roots_base="$scratch"
roots=$(mktemp -d "$roots_base/quen-fuzz-roots.XXXXXX")
trap 'rm -rf "$roots"' EXIT
export QUEN_FUZZ_TMP="$roots"
export UBSAN_OPTIONS=print_stacktrace=1

failed=0
for t in "${targets[@]}"; do
  work="$scratch/$t"
  mkdir -p "$work/corpus" "$work/found"
  cp -r "fuzz/corpus/$t/." "$work/corpus/"
  dirs=("$work/corpus")
  if [ -d "fuzz/regressions/$t" ]; then dirs+=("fuzz/regressions/$t"); fi
  rc=0
  "build-fuzz/fuzz/${t}_fuzz" -max_total_time="$secs" -timeout=25 -print_final_stats=1 \
    -artifact_prefix="$work/found/" "${dirs[@]}" >"$work/log" 2>&1 || rc=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$work/log" | tail -n 1)
  printf '%-14s %10s executions %8s exec/s' "$t" "${execs:-?}" "${rate:-?}"
  found=$(find "$work/found" -type f | head -n 1)
  if [ "$rc" -ne 0 ] || [ -n "$found" ]; then
    failed=1
    printf '   FAILED (exit %d): input %s, log %s' "$rc" "${found:-none}" "$work/log"
  fi
  printf '\n'
done

if [ "$failed" -ne 0 ]; then
  echo "fuzz: failures found; inputs and logs are in $scratch"
  exit 1
fi
rm -rf "$scratch"
