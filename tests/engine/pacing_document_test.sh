#!/bin/sh
# The tables and pictures of docs/pacing.md are those that the engine makes.
#
# Usage: pacing_document_test.sh PACING_FIGURES THROTTLECTL DOCS [--write]
#   --write   makes the pictures anew, and prints the tables for the document
set -eu
figures=$1 throttlectl=$2 docs=$3 write=${4:-}
made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT

"$figures" "$made" > "$made/tables"
draw() {
  "$throttlectl" plot "$made/$1.json" --to "$made/$1.svg" --title "$2" > "$made/said"
  if [ -n "$write" ]; then
    cp "$made/$1.svg" "$docs/pacing/$1.svg"
  elif ! cmp "$made/$1.svg" "$docs/pacing/$1.svg"; then
    echo "docs/pacing/$1.svg isn't what the engine does" >&2
    exit 1
  fi
}
draw bursts "Sample interval 5 s: a second's worth at once, then a pause"
draw block "Blocks of 64 MiB at 20 MB/s: each is paid for by a pause"
draw idle "Sample interval 30 s: 25 s without data are made up for at once"
draw opening "Sample interval 30 s: the window opens from 25 to 100 percent"
draw closing "Sample interval 30 s: the window closes from 100 to 25 percent"

if [ -n "$write" ]; then
  cat "$made/tables"
  exit 0
fi
while IFS= read -r row; do
  if [ -n "$row" ] && ! grep -qxF -e "$row" "$docs/pacing.md"; then
    echo "docs/pacing.md hasn't this row: $row" >&2
    exit 1
  fi
done < "$made/tables"
