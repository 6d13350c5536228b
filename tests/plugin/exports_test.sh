#!/bin/sh
# The plugin shows the world what the list says and nothing else.
#
# Usage: exports_test.sh PLUGIN.so EXPORTS.txt
set -eu
export LC_ALL=C
nm -D --defined-only "$1" | cut -d ' ' -f 2- | sort -k 2 | diff -u "$2" -
