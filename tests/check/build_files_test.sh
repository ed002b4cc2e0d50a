#!/usr/bin/env bash
# The build-file check passes on the tree, and fails on copies with one fault each: a daemon
# source missing from Android.bp, an entry naming no file, a host-only file in the device build,
# Android.bp out of bpfmt form, and quen.rc disagreeing with the binary it starts.
set -uo pipefail
src="$1"
check="$src/scripts/check-build-files.sh"
work="$(mktemp -d "${TMPDIR:-/tmp}/quen-bp-XXXXXX")"
trap 'rm -rf "$work"' EXIT
failures=0

copy() {
  rm -rf "$work/t" && mkdir -p "$work/t"
  (cd "$src" && cp -a Android.bp quen.rc core protectors iscd cfsd basp eis cvt asw service \
    daemon protos "$work/t/" && mkdir -p "$work/t/platform" && cp -a platform/device "$work/t/platform/")
}
expect() {  # expect STATUS WHAT
  local status=0
  "$check" "$work/t" 2>"$work/err" >/dev/null || status=$?
  if [ "$status" -ne "$1" ]; then
    echo "FAIL: $2: exit $status, expected $1"; cat "$work/err"; failures=$((failures + 1))
  elif [ "$1" -ne 0 ] && ! grep -q "$3" "$work/err"; then
    echo "FAIL: $2: message lacks '$3'"; cat "$work/err"; failures=$((failures + 1))
  fi
}

copy; expect 0 "the tree as it is" ""
copy; touch "$work/t/core/soh_new.cpp"; expect 1 "new core source" "core/soh_new.cpp is a daemon source missing"
copy; touch "$work/t/daemon/extra.cpp"; expect 1 "new daemon source" "daemon/extra.cpp"
copy; touch "$work/t/daemon/only_host.cpp"; expect 0 "a host-only file is not wanted" ""
copy; sed -i 's|"core/soh_json.cpp",|"core/soh_jsn.cpp",|' "$work/t/Android.bp"
expect 1 "entry naming no file" "soh_jsn.cpp, which does not exist"
copy; rm "$work/t/protos/eisdata.proto"; expect 1 "proto removed" "eisdata.proto, which does not exist"
copy; sed -i 's|"daemon/cli_device.cpp",|"daemon/cli_host.cpp",|' "$work/t/Android.bp"
expect 1 "host file in the device build" "host-only file daemon/cli_host.cpp"
copy; sed -i 's|^    vendor: true,|    vendor:   true,|' "$work/t/Android.bp"; expect 1 "not bpfmt form" "bpfmt"
copy; sed -i 's|/vendor/bin/quen|/system/bin/quen|' "$work/t/quen.rc"; expect 1 "rc binary path" "Android.bp installs /vendor/bin/quen"
copy; sed -i 's|^service quen |service quend |' "$work/t/quen.rc"; expect 1 "rc service name" "service name"
copy; sed -i 's|user system|user root|' "$work/t/quen.rc"; expect 1 "rc user" "user must be system"
copy; printf '    socket soh stream 0660 system system\n' >>"$work/t/quen.rc"; expect 1 "rc socket" "declares a socket"

[ $failures -eq 0 ] && echo "build-file check: all cases behave"
exit $((failures > 0))
