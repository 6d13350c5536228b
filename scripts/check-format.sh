#!/usr/bin/env bash
# Fails, and shows the difference, when a file isn't formatted as .clang-format says; --fix mends it.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files '*.h' '*.c' '*.cpp')
if [ "${1:-}" = --fix ]; then
  clang-format -i "${files[@]}"
else
  clang-format --dry-run --Werror "${files[@]}"
fi
