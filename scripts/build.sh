#!/usr/bin/env bash
# Configures and builds quen into a build directory.
# Usage: scripts/build.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${1:-build}"
shift || true
. scripts/ccache-args.sh
cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
ninja -C "$dir" >/dev/null
