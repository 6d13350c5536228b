#!/bin/sh
# What is installed as the components service and platform runs from where it is, and the unit starts
# just that, whatever the folder is called.
#
# Usage: install_test.sh CMAKE BUILD_DIR
set -eu
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for name in plain 'of two words' '100%n' "it's" 'a "quote" for $5' '$HOME' 'a;b #c'; do
  prefix=$scratch/$name
  for component in service platform; do
    "$1" --install "$2" --component "$component" --prefix "$prefix" >/dev/null
  done
  unit=$prefix/lib/systemd/system/vlsld.service
  # As systemd reads a line: quotes and escapes, a % for each two, and in an argument a $ for each two.
  program=$(python3 -c 'import re, shlex, sys
line = re.search("^ExecStart=(.*)$", open(sys.argv[1]).read(), re.M)[1].replace("%%", "%")
words = shlex.split(line)
print(words[1].replace("$$", "$") if words[0] == "/usr/bin/env" else words[0])' "$unit")
  [ "$program" = "$prefix/bin/vlsld" ] || { echo "$unit starts \"$program\"" >&2; exit 1; }
  "$program" --help >/dev/null
  # Where systemd is, it knows better.
  if command -v systemd-analyze >/dev/null && systemd-analyze verify "$unit" 2>&1 | grep -F vlsld; then
    exit 1
  fi
done
