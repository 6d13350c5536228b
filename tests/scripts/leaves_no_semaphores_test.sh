#!/usr/bin/env bash
# That leaves-no-semaphores.sh ($1) blames a command for the sets that it leaves, and for no others.
set -euo pipefail

script=$1
scratch=$(mktemp -d)
# Makes a set and prints its number.
make_set() { ipcmk -S 1 | awk '{ print $NF }'; }
remove_sets() {
  for set in $(cat "$scratch"/* 2>/dev/null); do
    ipcrm -s "$set" 2>/dev/null || true
  done
  rm -rf "$scratch"
}
trap remove_sets EXIT
export -f make_set

expect() { # WANTED WHAT COMMAND...
  local wanted=$1 what=$2 got=0
  shift 2
  "$@" >"$scratch/.log" 2>&1 || got=$?
  if [ "$got" != "$wanted" ]; then
    cat "$scratch/.log" >&2
    echo "$what: ended with $got, not $wanted" >&2
    exit 1
  fi
}

expect 0 "a command that leaves nothing" "$script" bash -c 'ipcrm -s "$(make_set)"'
expect 3 "a command that fails" "$script" bash -c 'exit 3'
expect 1 "a command that leaves a set" "$script" bash -c 'make_set >"$1"' bash "$scratch/mine"
expect 1 "the same without a namespace" "$script" --alone bash -c 'make_set >"$1"' bash "$scratch/same"
make_set >"$scratch/before"
expect 0 "a set that was there" "$script" --alone true
if unshare --ipc true 2>/dev/null || unshare --user --map-current-user --ipc true 2>/dev/null; then
  # A neighbour makes one meanwhile, once the command runs and before it ends.
  mkfifo "$scratch/.begun" "$scratch/.made"
  { read -r _ <"$scratch/.begun" && make_set >"$scratch/theirs" && echo >"$scratch/.made"; } &
  expect 0 "a set of a neighbour's" "$script" bash -c 'echo >"$1/.begun"; read -r _ <"$1/.made"' bash "$scratch"
fi
