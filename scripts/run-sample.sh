#!/usr/bin/env bash
# The main job: builds quen and runs it for a few seconds against a fresh copy of the sample
# device (examples/device), then shows what it logged and left behind.
# Usage: scripts/run-sample.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh build-run -DQUEN_BUILD_TESTS=OFF -DQUEN_BUILD_BENCH=OFF
seconds="${1:-5}"
root="$(mktemp -d /tmp/quen-sample-XXXXXX)"
cp -a examples/device/. "$root/"
echo "== running quen -d on the sample device at $root for up to ${seconds} s"
set +e
QUEN_ROOT="$root" timeout "$seconds" build-run/daemon/quen -d
rc=$?
set -e
if [ "$rc" -eq 124 ]; then
  echo "== quen still running after ${seconds} s (stopped by the time limit)"
else
  echo "== quen exited with status $rc"
fi
echo "== ctl.stop: $(cat "$root/properties/ctl.stop" 2>/dev/null || echo '(not set)')"
echo "== limit nodes:"
for n in "$root"/sys/class/vn_power/interface/* "$root"/sys/class/vn_power/soc_control/*; do
  printf '   %s: %s\n' "${n#"$root"}" "$(cat "$n")"
done
echo "== the device tree stays at $root"
