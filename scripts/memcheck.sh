#!/usr/bin/env bash
# Runs the daemon under valgrind memcheck for a short while on a copy of the sample device
# (accelerated clock, a few control-service requests), then checks that memcheck found no
# error and no definite leak.
# Usage: scripts/memcheck.sh [BUILD_DIR] [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
seconds="${2:-20}"
root="$(mktemp -d /tmp/quen-memcheck-XXXXXX)"
trap 'rm -rf "$root"' EXIT
cp -a examples/device/. "$root/"
log="$root/memcheck.log"
QUEN_ROOT="$root" QUEN_CLOCK_SPEED=200 valgrind --tool=memcheck --leak-check=full \
  --errors-for-leak-kinds=definite --show-leak-kinds=definite --log-file="$log" \
  "$build/daemon/quen" -d 2>"$root/quen.log" &
pid=$!
for _ in $(seq 1 300); do
  "$build/tools/quenctl" --root "$root" get smart_charging >/dev/null 2>&1 && break
  sleep 0.1
done
"$build/tools/quenctl" --root "$root" set ichg_limit "all 1500" >/dev/null
"$build/tools/quenctl" --root "$root" set soc_control "2 80 60" >/dev/null
"$build/tools/quenctl" --root "$root" get NO_SUCH_NAME >/dev/null 2>&1 || true
"$build/tools/quenctl" --root "$root" status >/dev/null
sleep "$seconds"
kill -TERM "$pid"
wait "$pid" || true
summary=$(grep "ERROR SUMMARY" "$log" | tail -1)
echo "memcheck: ${summary#*== }"
grep -E "definitely lost|in use at exit" "$log" | sed 's/^==[0-9]*== */memcheck: /' || true
if ! grep -q "ERROR SUMMARY: 0 errors" "$log"; then
  cat "$log"
  exit 1
fi
