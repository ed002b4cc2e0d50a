#!/usr/bin/env bash
# The main job: builds quen and its simulator, then runs the real daemon against a simulated
# phone (the default scenario, sim/scenarios/default.json, unless another is given) and writes
# a report with plots.
# Usage: scripts/simulate.sh [SCENARIO.json] [quen-sim options: --out DIR --days N --speed N]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh build-run -DQUEN_BUILD_TESTS=OFF -DQUEN_BUILD_BENCH=OFF >/dev/null
exec build-run/sim/runner/quen-sim "$@"
