#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: scripts/test.sh [PRESET...]
# PRESET is release (the default), debug, asan, tsan or coverage. What fails is printed whole, of what
# passes only the count; all of it is in build/PRESET/test.log.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
for preset in "${@:-release}"; do
  scripts/build.sh "$preset"
  echo "testing $preset" >&2
  log=build/$preset/test.log
  if ! scripts/leaves-no-semaphores.sh ctest --preset "$preset" >"$log" 2>&1; then
    grep -v -E '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test .* Passed )' "$log"
    exit 1
  fi
  grep -E '^[0-9]+% tests passed|^Total Test time' "$log"
done
