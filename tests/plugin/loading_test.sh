#!/bin/sh
# What the plugin brings into a host's process: no library that none of its calls comes to, few
# relocations to look up, at most 3 MiB; and in it still the whole client of the service.
#
# Usage: loading_test.sh PLUGIN.so SCHEMA_COUNTS.txt [LARGEST]
#   LARGEST   bytes that it may have without its debugging information; not looked at if left out
set -eu
plugin=$1 counts=$2 largest=${3:-}
fail() { echo "$plugin $1" >&2; exit 1; }

for needless in libCOS libcurl; do
  ! ldd "$plugin" | grep -q "$needless" || fail "loads $needless"
done

looked_up=$(readelf -rW "$plugin" | grep -c 'R_X86_64_64\|R_X86_64_GLOB_DAT')
[ "$looked_up" -le 8000 ] || fail "has $looked_up relocations to look up"

# An operation or a value of the interface is a row of the counts, the second and the third number.
expected=$(awk '!/^#/ { sum += $3 + $4 } END { print sum }' "$counts")
held=$(nm "$plugin" | grep -c ' [a-z] _ZL[0-9]*held_[0-9]*$')
[ "$held" = "$expected" ] || fail "holds $held operations and values of $expected"
! nm -C "$plugin" | grep -q ' POA_' || fail "holds servants"

if [ -n "$largest" ]; then
  stripped=$(mktemp)
  trap 'rm -f "$stripped"' EXIT
  strip -o "$stripped" "$plugin"
  size=$(stat -c %s "$stripped")
  [ "$size" -le "$largest" ] || fail "has $size bytes"
fi
