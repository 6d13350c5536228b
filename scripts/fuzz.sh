#!/usr/bin/env bash
# Builds the fuzzers and runs each from its seed inputs, fuzz/corpus/NAME, which stay as they are.
#
#   scripts/fuzz.sh [SECONDS [NAME...]]     how long each runs, 30 unless given; all of them unless named
#
# What makes one fail is kept in build/fuzz/findings, and what it said in build/fuzz/NAME.log.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-30}
names=("${@:2}")
if [ ${#names[@]} -eq 0 ]; then
  mapfile -t names < <(ls fuzz/corpus)
fi
usage() { sed -n '2,6s/^# \{0,1\}//p' "$0"; }
if [ "$seconds" = --help ]; then
  usage
  exit 0
fi
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
  usage >&2
  exit 2
fi
for name in "${names[@]}"; do
  if [ ! -d "fuzz/corpus/$name" ]; then
    echo "$0: no fuzzer is named $name; there are: $(ls -m fuzz/corpus)" >&2
    exit 2
  fi
done

scripts/install-deps.sh all
scripts/build.sh fuzz "${names[@]/#/fuzz_}"
findings=build/fuzz/findings
new_inputs=$(mktemp -d)
trap 'rm -rf "$new_inputs"' EXIT
mkdir -p "$findings"
export TZ=UTC UBSAN_OPTIONS=print_stacktrace=1

# run NAME: one summary line, and all that the fuzzer said when it failed.
run() {
  local name=$1 log=build/fuzz/$1.log program=build/fuzz/bin/fuzz_$1
  echo "fuzzing $name for $seconds s" >&2
  mkdir "$new_inputs/$name"
  if "$program" -max_total_time="$seconds" -max_len=32768 -timeout=10 -print_final_stats=1 \
      -artifact_prefix="$findings/$name-" "$new_inputs/$name" "fuzz/corpus/$name" >"$log" 2>&1; then
    echo "$name: passed, $(sed -n 's/^stat::number_of_executed_units: //p' "$log") inputs in $seconds s"
  else
    cat "$log" >&2
    echo "$name: failed; again: $program $(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)"
    return 1
  fi
}

passed=0
failed=0
for name in "${names[@]}"; do
  if run "$name"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
  fi
done
echo "$passed passed, $failed failed"
[ $failed -eq 0 ]
