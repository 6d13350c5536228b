#!/usr/bin/env bash
# Configures and builds one preset, quiet when all is well: scripts/build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:?usage: $0 PRESET [TARGET...]}
shift
targets=()
if [ $# -gt 0 ]; then
  targets=(--target "$@")
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "building $preset" >&2
if ! { cmake --preset "$preset" && cmake --build --preset "$preset" "${targets[@]}"; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "$0: building $preset failed" >&2
  exit 1
fi
