#!/usr/bin/env bash
# Shows the point of it on real data, in under a minute once built: this machine's /usr/include is backed
# up in four streams through the throttling layer, across the moment at which the off-time window opens,
# then restored and compared byte for byte.
#
#   scripts/demo.sh [--keep]     --keep leaves the store, the restored tree and the figures behind
set -euo pipefail
cd "$(dirname "$0")/.."

keep=no
case "${1:-}" in
  "") ;;
  --keep) keep=yes ;;
  *)
    sed -n '2,6s/^# \{0,1\}//p' "$0"
    [ "$1" = --help ] && exit 0
    exit 2 ;;
esac

scripts/install-deps.sh
scripts/build.sh release throttlectl stspithrottling
out=build/demo
rm -rf "$out"
mkdir -p "$out/conf" "$out/store"
[ "$keep" = yes ] || trap 'rm -rf "$out/store" "$out/restored"' EXIT
throttlectl=build/release/bin/throttlectl
source_tree=/usr/include
server="CS_throttle:demo:disk:$PWD/$out/store"

# A local time zone of the demo's own, in which the work window (a quarter of the bandwidth) closes and
# the off window (all of it) opens eight seconds from now.
now=$(date -u +%s)
boundary=$((now + 8))
shift_by=$(((18 * 3600 - boundary % 86400 + 86400) % 86400))
TZ=$(printf 'DEMO-%d:%02d:%02d' $((shift_by / 3600)) $((shift_by / 60 % 60)) $((shift_by % 60)))
export TZ

# Bandwidth for about eight seconds on either side of the boundary.
bytes=$(du -sb --apparent-size "$source_tree" | cut -f1)
bandwidth=$((bytes / 10))
# A weekend of day 7 alone has no day in it, so that the hours count on whichever day this runs.
cat >"$out/conf/libstspithrottling.conf" <<CONF
THR:READ_BANDWIDTH_PERCENT=100
THR:WRITE_BANDWIDTH_PERCENT=100
THR:DEFAULT_MAX_CONNECTIONS=10
THR:AVAIL_BANDWIDTH=$bandwidth
THR:WORK_TIME_START=8
THR:WORK_TIME_END=18
THR:WORK_TIME_BANDWIDTH_PERCENT=25
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
run() {
  "$throttlectl" run "$1" --conf-dir "$out/conf" --server "$server" --lsu demo "${@:2}"
}

echo "== back up $source_tree in four streams; the off window opens after 8 seconds"
run backup "$source_tree" --name include --streams 4 --plot "$out/backup.svg" --json "$out/backup.json"
echo "== restore it"
run restore --name include --to "$out/restored" --plot "$out/restore.svg"
echo "== compare it byte for byte"
diff -r --no-dereference "$source_tree" "$out/restored$source_tree"
echo "every byte is right"
echo "the picture: $out/backup.svg"
