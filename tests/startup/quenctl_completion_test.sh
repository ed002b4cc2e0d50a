#!/usr/bin/env bash
# quenctl's bash completion as installed by the install target: subcommands, parameter names
# after get and set (each only where it applies), and options of status.
set -uo pipefail
build="$1"
prefix="$(mktemp -d "${TMPDIR:-/tmp}/quen-install-XXXXXX")"
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null || { echo "install failed"; exit 1; }
file="$prefix/share/bash-completion/completions/quenctl"
[ -f "$file" ] || { echo "completion not installed at $file"; exit 1; }
[ -x "$prefix/bin/quenctl" ] || { echo "quenctl not installed"; exit 1; }
# shellcheck source=/dev/null
source "$file"
failures=0
expect() {  # expect "WORDS..." "expected replies (sorted, space-separated)"
  read -r -a COMP_WORDS <<<"$1"
  [[ "$1" == *" " ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _quenctl
  local got
  got="$(printf "%s\n" "${COMPREPLY[@]}" | sort | tr "\n" " " | sed "s/^ *//; s/ *$//")"
  if [ "$got" != "$2" ]; then
    echo "FAIL: '$1' completes to '$got', expected '$2'"; failures=$((failures + 1))
  fi
}
expect "quenctl s" "set status"
expect "quenctl --root /tmp g" "get"
expect "quenctl get smart_charge_" "smart_charge_enable smart_charge_feature"
expect "quenctl set smart_charge_" "smart_charge_enable smart_charge_support"
expect "quenctl set ichg" "ichg_limit ichg_ratio"
expect "quenctl get vnupd_config " ""
expect "quenctl status --w" "--watch"
expect "quenctl --v" "--version"
[ $failures -eq 0 ] && echo "completion: all cases behave"
exit $((failures > 0))
