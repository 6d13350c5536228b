#!/usr/bin/env bash
# Builds the fuzzers and runs each from its seed inputs, fuzz/corpus/NAME, which stay as they are: as many at
# once as there are processors.
#
#   scripts/fuzz.sh [SECONDS [NAME...]]     how long each runs, 30 unless given; all of them unless named
#
# What makes one fail is kept in build/asan/findings, and what it said in build/asan/NAME.log.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-30}
names=("${@:2}")
if [ ${#names[@]} -eq 0 ]; then
  mapfile -t names < <(ls fuzz/corpus)
fi
usage() { sed -n '2,7s/^# \{0,1\}//p' "$0"; }
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
scripts/build.sh asan "${names[@]/#/fuzz_}"
findings=build/asan/findings
new_inputs=$(mktemp -d)
trap 'rm -rf "$new_inputs"' EXIT
mkdir -p "$findings"
export TZ=UTC UBSAN_OPTIONS=print_stacktrace=1

# run NAME: one summary line, and all that the fuzzer said when it failed.
run() {
  local name=$1 log=build/asan/$1.log program=build/asan/bin/fuzz_$1
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

running=0
failed=0
end_one() {
  wait -n || failed=$((failed + 1))
  running=$((running - 1))
}
for name in "${names[@]}"; do
  [ "$running" -lt "$(nproc)" ] || end_one
  run "$name" &
  running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
  end_one
done
echo "$((${#names[@]} - failed)) passed, $failed failed"
[ $failed -eq 0 ]
