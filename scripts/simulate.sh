#!/usr/bin/env bash
# The main job: builds quen and its simulator, then runs the real daemon against simulated
# phones and writes a side-by-side report.
#
# Without arguments: a default lab on sim/scenarios/two-years.json: two users (overnight
# charger, heavy gamer in a hot car), each without quen and with quen, for two simulated years
# on the virtual clock (about four minutes on two cores); the report is
# out/sim/two-years-lab/report.html.
# With arguments, they are quen-sim's: scripts/simulate.sh [SCENARIO.json] [--days N] ...,
# scripts/simulate.sh lab ..., scripts/simulate.sh fleet ... (see quen-sim --help).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh build-run -DQUEN_BUILD_TESTS=OFF -DQUEN_BUILD_BENCH=OFF >/dev/null
sim=build-run/sim/runner/quen-sim
if [ $# -gt 0 ]; then
  exec "$sim" "$@"
fi
out=out/sim/two-years-lab
status=0
"$sim" lab sim/scenarios/two-years.json --profile overnight --profile gamer-hot-car \
  --out "$out" || status=$?
echo "simulate: the report is $(pwd)/$out/report.html"
exit "$status"
