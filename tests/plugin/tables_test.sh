#!/bin/sh
# Each unit that has a private copy of a fixed table has it in the plugin as it is built.
#
# Usage: tables_test.sh PLUGIN.so
set -eu
# expect TABLE COPIES
expect() {
  found=$(nm "$plugin" | grep -c " [a-zA-Z] _ZL[0-9]*$1\$" || true)
  [ "$found" = "$2" ] || { echo "$plugin has $found copies of $1, not $2" >&2; exit 1; }
}
plugin=$1
expect onet_proxy_hint_str 5
expect critical_err_to_msg 3
