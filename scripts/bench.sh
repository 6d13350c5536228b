#!/usr/bin/env bash
# Measures what the plugin costs, how well it keeps a rate and what the service carries, and prints
# Markdown tables, which docs/benchmarks.md explains. Nothing else should run meanwhile.
#
#   scripts/bench.sh [SECONDS]     how long each of the four pacers is measured, 30 unless given; the
#                                  calls take a minute before that, the service two behind it,
#                                  and small files two more
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-30}
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
  sed -n '2,6s/^# \{0,1\}//p' "$0"
  [ "$seconds" = --help ] && exit 0
  exit 2
fi
rate=50000000 # bytes a second

scripts/install-deps.sh all
scripts/build.sh release throttling_bench pacing streams_bench service_bench unmarshal_bench client_bench \
  load_bench log_bench store_bench host_bench throttlectl stspithrottling
bin=build/release/bin

# row NAME "BYTES SECONDS RATIO BUSIEST PAUSE"
row() { echo "| $1 | ${2// / | } |"; }

plugin() {
  echo "pacing, the plugin with a sample interval of $1 s: $seconds s" >&2
  figures=$($bin/pacing plugin --rate $rate --seconds "$seconds" --interval "$1")
  row "the plugin, \`THR:SAMPLE_INTERVAL=$1\`" "$figures"
}

pipe_viewer() {
  echo "pacing, pv: $seconds s" >&2
  # The meter hangs up on pv when it has seen enough.
  figures=$({ pv -q -L $rate /dev/zero || true; } | $bin/pacing stream --rate $rate --seconds "$seconds")
  row "\`pv -L $rate\`" "$figures"
}

# fio keeps its rate without passing its data on, so what it says of itself is taken: fields 47 and 50
# of its terse output are the KiB written and the milliseconds.
flexible_io() {
  echo "pacing, fio: $seconds s" >&2
  report=$(fio --name=pacing --ioengine=null --rw=write --bs=256k --size=1g --rate=$rate \
    --time_based --runtime="$seconds" --output-format=terse --terse-version=3)
  figures=$(echo "$report" | awk -F';' -v rate=$rate '{
    bytes = $47 * 1024
    seconds = $50 / 1000
    printf "%.0f %.3f %.4f - -", bytes, seconds, bytes / seconds / rate
  }')
  row "\`fio --rate=$rate\`" "$figures"
}

echo "measuring calls, about a minute" >&2
$bin/throttling_bench
echo
echo "| Pacer | Bytes | Seconds | Achieved / allowed | Busiest second / allowed | Longest pause, s |"
echo "| --- | ---: | ---: | ---: | ---: | ---: |"
plugin 30
plugin 5
pipe_viewer
flexible_io
echo "measuring the log, half a minute" >&2
echo
$bin/log_bench
echo "many streams, about a minute and a half" >&2
echo
$bin/streams_bench
echo "measuring the service, about two minutes" >&2
echo
$bin/unmarshal_bench
echo
$bin/client_bench $bin/vlsld
echo
$bin/service_bench $bin/vlsld 20
echo
$bin/load_bench build/release/lib/libstspithrottling.so build/release/lib/libvlorbST.so
echo "measuring the storage's listings" >&2
echo
$bin/store_bench
echo "measuring backups of small files, about two minutes" >&2
echo
$bin/host_bench $bin/throttlectl
