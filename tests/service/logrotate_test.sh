#!/bin/sh
# The real logrotate with the files that are installed for it: the service goes on in a new file, and of the
# plugin's daily logs the old ones go and no other is touched.
#
# Usage: logrotate_test.sh LOGROTATE VLSLD PACKAGING
set -eu
scratch=$(mktemp -d)
service=
trap '[ -z "$service" ] || kill "$service" 2>/dev/null || true; rm -rf "$scratch"' EXIT
fail() {
  echo "$*" >&2
  exit 1
}
mkdir "$scratch/bin" "$scratch/log" "$scratch/daily"

# --- the service ------------------------------------------------------------------------------------
log=$scratch/log/vlsld.log
"$2" --port 0 --no-http --state "$scratch/state" --log-file "$log" --port-file "$scratch/ports" >/dev/null &
service=$!
cat >"$scratch/bin/systemctl" <<END
#!/bin/sh
[ "\$*" = "kill --kill-who=main --signal=HUP vlsld.service" ] && kill -HUP $service
END
chmod +x "$scratch/bin/systemctl"
tries=0
until [ -s "$scratch/ports" ]; do
  tries=$((tries + 1))
  [ $tries -lt 300 ] || fail "the service doesn't start"
  sleep 0.1
done
sed "s|/var/log/vlsld|$scratch/log|" "$3/vlsld.logrotate" >"$scratch/vlsld.conf"
chmod 0644 "$scratch/vlsld.conf"
PATH=$scratch/bin:$PATH "$1" --force --state "$scratch/rotated" "$scratch/vlsld.conf"
tries=0
until [ -e "$log" ]; do
  tries=$((tries + 1))
  [ $tries -lt 300 ] || fail "the service doesn't open its log anew"
  sleep 0.1
done
kill "$service"
wait "$service"
service=
grep -q 'is ready' "$log.1" || fail "the old log isn't kept"
grep -q 'stopped' "$log" || fail "the new log has nothing of what came later"
! grep -q 'stopped' "$log.1" || fail "the old log has what came later"
[ "$(stat -c %a "$log")" = 640 ] || fail "the new log has the mode $(stat -c %a "$log")"

# --- the plugin -------------------------------------------------------------------------------------
echo 'logrotate state -- version 2' >"$scratch/seen"
chmod 0600 "$scratch/seen"
for days in 0 1 13 15 400; do
  file=$scratch/daily/throttlinglog_$(date -d "$days days ago" +%Y%m%d)
  echo "$days" >"$file"
  touch -d "$days days ago" "$file"
  echo "\"$file\" 2020-1-1-0:0:0" >>"$scratch/seen"
done
touch -d '400 days ago' "$scratch/daily/throttlinglog_other"
sed "s|/usr/opvault/vaultaro/logs/vlcssc|$scratch/daily|" "$3/libstspithrottling.logrotate" >"$scratch/daily.conf"
chmod 0644 "$scratch/daily.conf"
"$1" --state "$scratch/seen" "$scratch/daily.conf"
left=$(cat "$scratch"/daily/* | sort -n | tr '\n' ' ')
[ "$left" = "0 1 13 " ] || fail "the logs that are left have the ages $left"
[ "$(ls "$scratch/daily" | wc -l)" = 4 ] || fail "$(ls "$scratch/daily")"
