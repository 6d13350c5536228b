#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests: scripts/test.sh [PRESET...] [NAME...]
#
#   scripts/test.sh                     all of them, built for release
#   scripts/test.sh asan tsan           all of them, under each of two sanitizers
#   scripts/test.sh Settings asan       those whose names match the regular expression Settings
#   scripts/test.sh --failed            those that failed last
#
# PRESET is release, debug, asan, tsan (the tests that have threads), tsan-all, coverage or smoke, which is what a
# site runs and the tests of the wire.
# What fails is printed whole, of what passes only the count; all of it is in build/PRESET/test.log.
set -euo pipefail
cd "$(dirname "$0")/.."

presets=()
names=()
choice=()
packages=()
for each in "$@"; do
  case "$each" in
    release | debug | coverage) presets+=("$each") packages+=(tests) ;;
    asan | tsan | tsan-all) presets+=("$each") packages+=(sanitizers) ;;
    smoke) presets+=("$each") packages+=(smoke) ;;
    --failed) choice=(--rerun-failed) ;;
    -*)
      sed -n '2,11s/^# \{0,1\}//p' "$0"
      [ "$each" = --help ] && exit 0
      exit 2 ;;
    *) names+=("$each") ;;
  esac
done
if [ ${#names[@]} -gt 0 ]; then
  choice+=(-R "$(IFS='|'; echo "${names[*]}")" --no-tests=error)
fi

scripts/install-deps.sh "${packages[@]:-tests}"
for preset in "${presets[@]:-release}"; do
  scripts/build.sh "$preset"
  echo "testing $preset" >&2
  log=build/$preset/test.log
  if ! scripts/leaves-no-semaphores.sh ctest --preset "$preset" "${choice[@]}" >"$log" 2>&1; then
    grep -v -E '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test .* Passed )' "$log"
    exit 1
  fi
  grep -E '^[0-9]+% tests passed|^Total Test time' "$log"
done
