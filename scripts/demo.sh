#!/usr/bin/env bash
# Shows the point of it on real data, in about a minute once built, with the management service running on
# free ports of this host:
#
#   1. This machine's /usr/include is backed up in four streams through the throttling layer, across the
#      moment at which the off-time window opens, then restored and compared byte for byte.
#   2. Two processes with two streams each share the bandwidth of one storage. A third one, over the
#      storage's limit of connections, is refused.
#
#   scripts/demo.sh [--keep]     --keep leaves the stores, the restored tree and the figures behind
set -euo pipefail
cd "$(dirname "$0")/.."

keep=no
case "${1:-}" in
  "") ;;
  --keep) keep=yes ;;
  *)
    sed -n '2,10s/^# \{0,1\}//p' "$0"
    [ "$1" = --help ] && exit 0
    exit 2 ;;
esac

scripts/install-deps.sh
scripts/build.sh release -DTHROTTLING_TESTS=OFF -DTHROTTLING_BENCHMARKS=OFF throttlectl stspithrottling vlsld
out=build/demo
rm -rf "$out"
mkdir -p "$out/conf" "$out/shared-conf" "$out/store" "$out/shared"
service=
clean_up() {
  [ -z "$service" ] || kill "$service" 2>/dev/null || true
  [ "$keep" = yes ] || rm -rf "$out/store" "$out/shared" "$out/restored"
}
trap clean_up EXIT
throttlectl=build/release/bin/throttlectl
source_tree=/usr/include

# A local time zone of the demo's own, the service's too, in which the work window (a quarter of the
# bandwidth) closes and the off window (all of it) opens eight seconds from now.
now=$(date -u +%s)
boundary=$((now + 8))
shift_by=$(((18 * 3600 - boundary % 86400 + 86400) % 86400))
TZ=$(printf 'DEMO-%d:%02d:%02d' $((shift_by / 3600)) $((shift_by / 60 % 60)) $((shift_by % 60)))
export TZ

# --- the service ------------------------------------------------------------------------------------
build/release/bin/vlsld --port 0 --http-port 0 --state "$out/state" --port-file "$out/ports" \
  >/dev/null 2>"$out/vlsld.log" &
service=$!
for _ in $(seq 100); do
  [ ! -s "$out/ports" ] || break
  kill -0 "$service" 2>/dev/null || break
  sleep 0.1
done
if [ ! -s "$out/ports" ]; then
  cat "$out/vlsld.log" >&2
  echo "$0: the service doesn't start" >&2
  exit 1
fi
. "$out/ports"
export VLSL_PORT
echo "== the service counts; its live page: http://127.0.0.1:$VLSL_HTTP_PORT/"

# --- one process, two windows -----------------------------------------------------------------------
# Bandwidth for about eight seconds on either side of the boundary.
bytes=$(du -sb --apparent-size "$source_tree" | cut -f1)
bandwidth=$((bytes / 10))
# settings BANDWIDTH LIMIT WORK_TIME_PERCENT: a file of settings. A weekend of day 7 alone has no day in it,
# so that the hours count on whichever day this runs.
settings() {
  cat <<CONF
THR:READ_BANDWIDTH_PERCENT=100
THR:WRITE_BANDWIDTH_PERCENT=100
THR:DEFAULT_MAX_CONNECTIONS=$2
THR:AVAIL_BANDWIDTH=$1
THR:WORK_TIME_START=8
THR:WORK_TIME_END=18
THR:WORK_TIME_BANDWIDTH_PERCENT=$3
THR:OFF_TIME_START=18
THR:OFF_TIME_END=8
THR:OFF_TIME_BANDWIDTH_PERCENT=100
THR:WEEKEND_START=7
THR:WEEKEND_END=7
THR:WEEKEND_BANDWIDTH_PERCENT=100
THR:SAMPLE_INTERVAL=2
THR:LOG_LEVEL=0
THR:CSSC_HOST_NAME=localhost
CONF
}
settings "$bandwidth" 10 25 >"$out/conf/libstspithrottling.conf"
# run COMMAND STORE CONF ARGUMENTS...
run() {
  "$throttlectl" run "$1" --conf-dir "$out/$3" --server "CS_throttle:demo:disk:$PWD/$out/$2" --lsu demo "${@:4}"
}

echo "== back up $source_tree in four streams; the off window opens after 8 seconds"
run backup store conf "$source_tree" --name include --streams 4 --plot "$out/backup.svg" --json "$out/backup.json"
echo "== restore it"
run restore store conf --name include --to "$out/restored" --plot "$out/restore.svg"
echo "== compare it byte for byte"
diff -r --no-dereference "$source_tree" "$out/restored$source_tree"
echo "every byte is right"

# --- two processes, one storage ---------------------------------------------------------------------
settings $((bytes / 11)) 2 100 >"$out/shared-conf/libstspithrottling.conf"
# share NAME: a backup to the shared storage, with its figures and what it says in files of its own.
share() {
  run backup shared shared-conf "$source_tree" --name "$1" --streams 2 --json "$out/$1.json" >"$out/$1.txt" 2>&1
}
echo "== two processes share a storage of two connections; the second joins after 6 seconds"
share first &
first=$!
sleep 6
share second &
second=$!
sleep 4
if share third || ! grep -q 'refuses one more connection' "$out/third.txt"; then
  kill "$first" "$second" 2>/dev/null || true
  cat "$out/third.txt" >&2
  echo "$0: a third process isn't refused" >&2
  exit 1
fi
echo "-- the third, over the limit:"
grep '^throttlectl: ' "$out/third.txt"
for each in first second; do
  if ! wait "${!each}"; then
    cat "$out/$each.txt" >&2
    exit 1
  fi
  echo "-- the $each:"
  grep -E '^(stream |total )' "$out/$each.txt"
done
"$throttlectl" plot "$out/first.json" "$out/second.json" --to "$out/shared.svg" \
  --title "Two processes share one storage" >/dev/null
echo "the pictures: $out/backup.svg, $out/shared.svg; what the service saw: $out/vlsld.log"
