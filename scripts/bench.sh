#!/usr/bin/env bash
# Measures what the plugin costs, how well it keeps a rate beside other pacers and what the service
# carries, and prints Markdown tables, which docs/benchmarks.md explains. Nothing else should run
# meanwhile.
#
#   scripts/bench.sh [SECONDS]     how long a pacer is measured in each scenario, 15 unless given (five
#                                  minutes in all); the calls take a minute before that, the rest
#                                  seven behind it
set -euo pipefail
shopt -s inherit_errexit
cd "$(dirname "$0")/.."

seconds=${1:-15}
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
  sed -n '2,8s/^# \{0,1\}//p' "$0"
  [ "$seconds" = --help ] && exit 0
  exit 2
fi

scripts/install-deps.sh bench
scripts/build.sh release throttling_bench pacing streams_bench service_bench unmarshal_bench client_bench \
  load_bench log_bench store_bench host_bench throttlectl stspithrottling
bin=build/release/bin

# --- how closely a rate is kept ---------------------------------------------------------------------
# Scenarios: steady, a block worth more than a second, after idling, many streams. In each a pacer's
# function prints "BYTES SECONDS RATIO BUSIEST PAUSE AHEAD", as bench/pacing.cpp says; "-" stands for
# what can't be had.
rate=50000000 # bytes a second
block=262144
idle=0
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
truncate -s 1T "$scratch/zeros" # all hole: what a peer reads that reads files alone

# meter HOW [OPTION...]
meter() { $bin/pacing "$@" --rate $rate --seconds "$seconds" --block $block --idle "$idle"; }

# meter_stream: the meter hangs up when it has seen enough, whatever the peer says to that. What the
# peer said is shown when it didn't last as long.
meter_stream() {
  if ! meter stream; then
    cat "$scratch/said" >&2
    return 1
  fi
}

plugin() { meter plugin --interval "$1" --streams "${2:-1}"; }

pipe_viewer() { { pv -q -B $block -L $rate /dev/zero 2>"$scratch/said" || true; } | meter_stream; }

# server_of_disks [STREAMS]: so many clients of one server, all into one pipe.
server_of_disks() {
  { nbdkit -U - --filter=rate pattern 1T rate=$((rate * 8)) --run '
      for stream in $(seq '"${1:-1}"'); do
        nbdcopy --request-size='$block' "$uri" - &
      done
      wait' 2>"$scratch/said" || true; } | meter_stream
}

remote_copy() {
  { rclone --config /dev/null --bwlimit ${rate}B cat "$scratch/zeros" 2>"$scratch/said" || true; } |
    meter_stream
}

# remote_copy_streams STREAMS: so many clients of one server on loopback, all into one pipe.
remote_copy_streams() {
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  rclone --config /dev/null --bwlimit ${rate}B serve http --addr "127.0.0.1:$port" "$scratch" \
    2>"$scratch/said" &
  server=$!
  failed=no
  {
    for ((stream = 0; stream < $1; ++stream)); do
      curl -s --retry 30 --retry-delay 1 --retry-connrefused "http://127.0.0.1:$port/zeros" &
    done
    wait
  } | meter_stream || failed=yes
  kill $server
  wait $server 2>/dev/null || true
  [ "$failed" = no ]
}

# fio keeps its rate without passing its data on, so the meter reads its log of blocks. While it
# thinks, it asks for nothing; it does so again as soon as it has caught up, so that the seconds of
# such a run say nothing.
flexible_io() {
  thinking=()
  if [ "$idle" != 0 ]; then
    thinking=(--thinktime="${idle}s" --thinktime_blocks=$((seconds * rate / block / 3)))
  fi
  fio --name=pacing --ioengine=null --rw=write --bs=$block --size=1t --rate=$rate "${thinking[@]}" \
    --time_based --runtime=$((seconds + seconds / 2 + 2 * block / rate + 1)) \
    --write_bw_log="$scratch/fio" --output="$scratch/said"
  figures=$(meter log <"$scratch/fio_bw.1.log")
  if [ "$idle" != 0 ]; then
    figures=$(echo "$figures" | awk '{ print $1, $2, "-", $4, "-", $6 }')
  fi
  echo "$figures"
}

# Whose limit is each stream's own.
no_such_limit() { echo "- - - - - -"; }

# scenario NAME, then lines of "PACER: COMMAND" on standard input: a row of the table each. The last
# column says of each of the plugin's rows what the peers, who is best first, do better: by more than
# a hundredth of the rate or of a second's worth, or a tenth of a second of pause.
scenario() {
  while IFS= read -r line; do
    echo "pacing, $1, ${line%%: *}: $seconds s" >&2
    figures=$(${line#*: } </dev/null)
    echo "${line%%: *}|$figures"
  done | awk -F'|' -v scenario="$1" '
    function off(value) { return value > 1 ? value - 1 : 1 - value }
    # behind(of, WHICH, MORE): the peers whose figure is better by more than that.
    function behind(what, which, more,    row, mine, best, peer, theirs) {
      mine = which == 3 ? off(figure[of, which]) : figure[of, which]
      best = mine - more
      peer = ""
      for (row = 1; row <= NR; ++row) {
        if (name[row] ~ /plugin/ || figure[row, which] == "-") { continue }
        theirs = which == 3 ? off(figure[row, which]) : figure[row, which]
        if (theirs < best) { best = theirs; peer = name[row] }
      }
      if (peer != "") { said = said (said == "" ? "" : "; ") what ": " peer }
    }
    {
      name[NR] = $1
      split($2, each, " ")
      for (i = 1; i <= 6; ++i) { figure[NR, i] = each[i] }
    }
    END {
      for (of = 1; of <= NR; ++of) {
        said = ""
        if (name[of] ~ /plugin/) {
          behind("average", 3, 0.01)
          behind("busiest second", 4, 0.01)
          behind("pause", 5, 0.1)
          behind("at once", 6, 0.01)
          if (said == "") { said = "nothing" }
        }
        printf "| %s | %s | %s | %s | %s | %s | %s |\n", scenario, name[of], figure[of, 3],
          figure[of, 4], figure[of, 5], figure[of, 6], said
      }
    }'
}

pacing() {
  local everyone="the plugin, \`THR:SAMPLE_INTERVAL=30\`: plugin 30
the plugin, \`THR:SAMPLE_INTERVAL=5\`: plugin 5
\`pv\`: pipe_viewer
\`fio\`: flexible_io
\`nbdkit\`: server_of_disks
\`rclone\`: remote_copy"
  echo "| Scenario | Pacer | Achieved / allowed | Busiest second / allowed | Longest pause, s |" \
    "At once, s | The plugin is behind in |"
  echo "| --- | --- | ---: | ---: | ---: | ---: | --- |"
  scenario "steady" <<<"$everyone"
  idle=$((seconds / 3 > 0 ? seconds / 3 : 1))
  scenario "after $idle s idle" <<<"$everyone"
  idle=0
  scenario "16 streams" <<END
the plugin, \`THR:SAMPLE_INTERVAL=5\`: plugin 5 16
\`nbdkit\`: server_of_disks 16
\`rclone\`: remote_copy_streams 16
\`pv\`: no_such_limit
\`fio\`: no_such_limit
END
  rate=10000000
  block=33554432
  scenario "a block worth 3.4 s" <<END
the plugin, \`THR:SAMPLE_INTERVAL=5\`: plugin 5
\`pv\`: pipe_viewer
\`fio\`: flexible_io
\`nbdkit\`: server_of_disks
END
}

# --- what a pipe costs --------------------------------------------------------------------------------
# Throttling is off; both move the same bytes by turns, and the best of three of each counts.
settings_off=$scratch/off
mkdir "$settings_off"
echo THR:SAMPLE_INTERVAL=0 >"$settings_off/libstspithrottling.conf"

our_pipe() { $bin/throttlectl pipe -q --conf-dir "$settings_off" --server CS_throttle:nas:pipe:bench; }

ratio() { awk "BEGIN { printf \"%.2f\", $1 / $2 }"; }

# gigabytes_a_second COMMAND
gigabytes_a_second() {
  local bytes=8000000000 begins ends
  begins=$(date +%s%N)
  head -c $bytes /dev/zero | "$@" | cat >/dev/null
  ends=$(date +%s%N)
  ratio $bytes $((ends - begins))
}

pipes() {
  local best_of_ours=0 best_of_pv=0 turn
  for turn in 1 2 3; do
    best_of_ours=$(printf '%s\n' "$best_of_ours" "$(gigabytes_a_second our_pipe)" | sort -g | tail -1)
    best_of_pv=$(printf '%s\n' "$best_of_pv" "$(gigabytes_a_second pv -q)" | sort -g | tail -1)
  done
  echo "| A pipe, no limit | GB/s | beside \`pv\` |"
  echo "| --- | ---: | ---: |"
  echo "| \`throttlectl pipe\` | $best_of_ours | $(ratio "$best_of_ours" "$best_of_pv") |"
  echo "| \`pv\` | $best_of_pv | 1.00 |"
}

echo "measuring calls, about a minute" >&2
$bin/throttling_bench
echo
pacing
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
echo "measuring pipes, half a minute" >&2
echo
pipes
echo "measuring backups of small files, about two minutes" >&2
echo
$bin/host_bench $bin/throttlectl
