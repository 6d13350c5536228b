#!/usr/bin/env bash
# Runs clang-tidy, as .clang-tidy says, over everything but the tests: scripts/lint.sh [FILE...]
set -euo pipefail
cd "$(dirname "$0")/.."

files=("$@")
if [ ${#files[@]} -eq 0 ]; then
  mapfile -t files < <(git ls-files '*.cpp' | grep -v -E '^(tests|bench|fuzz)/')
fi
[ -f build/release/compile_commands.json ] || cmake --preset release >/dev/null
echo "linting ${#files[@]} files" >&2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! printf '%s\n' "${files[@]}" | xargs -P 2 -n 4 clang-tidy -p build/release --quiet >"$log" 2>/dev/null; then
  cat "$log"
  exit 1
fi
