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
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# What g++ has precompiled is nothing to clang.
sed 's/-Winvalid-pch -include [^ ]*//; s/-fpch-preprocess//' build/release/compile_commands.json >"$scratch/compile_commands.json"
if ! printf '%s\n' "${files[@]}" | xargs -P 2 -n 4 clang-tidy -p "$scratch" --quiet >"$scratch/log" 2>/dev/null; then
  cat "$scratch/log"
  exit 1
fi
