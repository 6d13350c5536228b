#!/bin/sh
# What is installed as the components service and platform runs from where it is, and the unit starts
# just that.
#
# Usage: install_test.sh CMAKE BUILD_DIR
set -eu
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
for component in service platform; do
  "$1" --install "$2" --component "$component" --prefix "$prefix" >/dev/null
done
unit=$prefix/lib/systemd/system/vlsld.service
program=$(sed -n 's/^ExecStart=\([^ ]*\) .*/\1/p' "$unit")
[ "$program" = "$prefix/bin/vlsld" ] || { echo "$unit starts \"$program\"" >&2; exit 1; }
"$program" --help >/dev/null
