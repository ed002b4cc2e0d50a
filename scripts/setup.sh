#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing quen need, if any are missing.
# Run as root (or with sudo available) on a fresh machine; does nothing when all are present.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config clang clang-format
  libjsoncpp-dev libprotobuf-dev protobuf-compiler libssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libfuse3-dev fuse3 gnuplot-nox valgrind libclang-rt-14-dev chromium
  blueprint-tools ccache
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
echo "setup: installing ${missing[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
