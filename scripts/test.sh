#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: scripts/test.sh [PRESET...]
# PRESET is release (the default), debug, asan, tsan or coverage.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
for preset in "${@:-release}"; do
  scripts/build.sh "$preset"
  echo "testing $preset" >&2
  ctest --preset "$preset" --progress
done
