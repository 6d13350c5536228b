#!/usr/bin/env bash
# Configures and builds one preset, quiet when all is well: scripts/build.sh PRESET [-DNAME=VALUE...] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:?usage: $0 PRESET [-DNAME=VALUE...] [TARGET...]}
shift
settings=()
targets=()
for each in "$@"; do
  case "$each" in
    -D*) settings+=("$each") ;;
    *) targets+=("$each") ;;
  esac
done
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "building $preset" >&2
if ! { cmake --preset "$preset" "${settings[@]}" &&
       cmake --build --preset "$preset" ${targets:+--target "${targets[@]}"}; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "$0: building $preset failed" >&2
  exit 1
fi
