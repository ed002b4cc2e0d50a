#!/usr/bin/env bash
# Keeps the device build description true to the tree:
#  - Android.bp is in bpfmt form;
#  - every daemon source (the subsystem folders, daemon/ without its *_host.cpp files,
#    platform/device/) and every proto is named by a srcs entry of Android.bp, literally or
#    through a "dir/*.cpp" glob, and every entry names files that exist;
#  - quen.rc declares the service "quen" at the path Android.bp installs the binary to, as user
#    system and group system, and declares no socket (the control service is a binder service).
# Usage: scripts/check-build-files.sh [SOURCE_DIR]   (exit 0 when all hold, 1 otherwise)
set -uo pipefail
cd "${1:-$(dirname "$0")/..}" || exit 2
fail=0
problem() { echo "check-build-files: $*" >&2; fail=1; }

if ! command -v bpfmt >/dev/null; then
  echo "check-build-files: bpfmt not found (Debian package blueprint-tools)" >&2
  exit 2
fi
if [ -n "$(bpfmt -l Android.bp)" ]; then
  problem "Android.bp is not in bpfmt form (bpfmt -d Android.bp shows how)"
fi

# Every string inside a srcs: [...] list.
mapfile -t entries < <(awk '
  /srcs: *\[/ { inlist = 1 }
  inlist { line = $0; while (match(line, /"[^"]*"/)) { print substr(line, RSTART + 1, RLENGTH - 2);
           line = substr(line, RSTART + RLENGTH) } }
  inlist && /\]/ { inlist = 0 }' Android.bp)
[ ${#entries[@]} -gt 0 ] || problem "Android.bp names no srcs"

covered=()
for e in "${entries[@]}"; do
  shopt -s nullglob
  # shellcheck disable=SC2206  # the entry may be a glob
  files=($e)
  shopt -u nullglob
  if [ ${#files[@]} -eq 0 ] || [ ! -e "${files[0]}" ]; then
    problem "Android.bp names $e, which does not exist"
  fi
  covered+=("${files[@]}")
done

daemon_dirs=(core protectors iscd cfsd basp eis cvt asw service daemon platform/device)
mapfile -t sources < <(
  for d in "${daemon_dirs[@]}"; do
    find "$d" -maxdepth 1 -name '*.cpp' ! -name '*_host.cpp'
  done
  find protos -maxdepth 1 -name '*.proto')
for f in "${sources[@]}"; do
  found=0
  for c in "${covered[@]}"; do
    if [ "$c" = "$f" ]; then found=1; break; fi
  done
  [ $found -eq 1 ] || problem "$f is a daemon source missing from Android.bp"
done
for c in "${covered[@]}"; do
  case "$c" in
    *_host.cpp) problem "Android.bp builds the host-only file $c" ;;
  esac
done

# The binary's install path: /vendor/bin for a vendor module.
binary=$(awk '/^cc_binary *\{/ { b = 1 } b && /name:/ { gsub(/[",]/, "", $2); print $2; exit }' Android.bp)
vendor=$(awk '/^cc_defaults *\{/ { d = 1 } d && /vendor: *true/ { print "yes"; exit }' Android.bp)
[ -n "$binary" ] || problem "Android.bp has no cc_binary"
path="/system/bin/$binary"
[ "$vendor" = yes ] && path="/vendor/bin/$binary"
grep -q 'init_rc: *\["quen.rc"\]' Android.bp || problem "Android.bp does not install quen.rc"

if [ ! -f quen.rc ]; then
  problem "quen.rc is missing"
else
  read -r kw name exe _ < <(grep -E '^service ' quen.rc)
  [ "${kw:-}" = service ] || problem "quen.rc declares no service"
  [ "${name:-}" = quen ] || problem "quen.rc: service name is '${name:-}', the daemon stops itself as 'quen'"
  [ "${exe:-}" = "$path" ] || problem "quen.rc: runs '${exe:-}', Android.bp installs $path"
  grep -qE '^[[:space:]]+user system$' quen.rc || problem "quen.rc: user must be system"
  grep -qE '^[[:space:]]+group system( |$)' quen.rc || problem "quen.rc: group must start with system"
  if grep -qE '^[[:space:]]+socket ' quen.rc; then
    problem "quen.rc declares a socket; the control service is the binder service soh.service"
  fi
fi
exit $fail
