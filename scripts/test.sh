#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs every test with CTest.
# Usage: scripts/test.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
dir="${1:-build}"
shift || true
scripts/build.sh "$dir" "$@"
cd "$dir"
ctest --output-on-failure -j"$(nproc)" --timeout 300
