#!/usr/bin/env bash
# What scripts/check-packages.sh does in the root that it has made, where the packages are in /packages.
set -euo pipefail

say() { echo "$*" >&2; }
fail() {
  say "not as it should be: $*"
  exit 1
}
# quietly COMMAND...: its output is of interest only where it fails.
quietly() {
  if ! "$@" >/packages/log 2>&1; then
    cat /packages/log >&2
    fail "$*"
  fi
}
# ours: what lies on disk, but the operator's settings, that has one of our names.
ours() {
  find / -xdev \( -path /packages -o -path /proc -o -path /dev -o -path /var/log/apt -o -path /etc/throttling \) \
    -prune -o \( -iname '*throttl*' -o -iname '*vlsld*' -o -iname '*vaultaro*' -o -name 'libsts*' -o -name 'libvl*' \) -print
}

names=()
for each in /packages/*.deb; do
  names+=("$(dpkg-deb --field "$each" Package)")
done
[ -z "$(ours)" ] || fail "a fresh root has $(ours)"

say "installing the version before"
quietly apt-get -q update
quietly apt-get -q install -y --no-install-recommends /packages/before/*.deb
echo 'VLSLD_OPTIONS="--lease 600"' >>/etc/default/vlsld

say "upgrading"
quietly apt-get -q install -y --no-install-recommends -o Dpkg::Options::=--force-confold /packages/*.deb
for each in /packages/*.deb; do
  name=$(dpkg-deb --field "$each" Package)
  version=$(dpkg-deb --field "$each" Version)
  [ "$(dpkg-query -W -f '${db:Status-Abbrev}${Version}' "$name")" = "ii $version" ] || fail "$name isn't upgraded"
done
grep -q 'lease 600' /etc/default/vlsld || fail "the upgrade took the operator's options"
[ -L /etc/systemd/system/multi-user.target.wants/vlsld.service ] || fail "the unit isn't enabled"
getent passwd vlsld >/dev/null || fail "there is no user vlsld"
if command -v systemd-analyze >/dev/null; then
  complaints=$(systemd-analyze verify vlsld.service 2>&1 | grep -F vlsld || true)
  [ -z "$complaints" ] || fail "$complaints"
fi

say "looking for what is loaded late"
for each in libstspithrottling libvlcommon; do
  file=$(ls /usr/lib/*/"$each.so")
  late=$(grep -aoE 'lib(COS4|curl)\.so\.[0-9]+' "$file" | sort -u)
  [ -n "$late" ] || fail "$file loads nothing late"
  ldconfig -p | grep -q "$late " || fail "$late, which $file loads late, isn't there"
done

say "backing up and restoring, in a network of its own"
status() {
  exec 3<>/dev/tcp/127.0.0.1/5639 || return
  printf 'GET /status HTTP/1.0\r\nHost: 127.0.0.1:5639\r\n\r\n' >&3
  cat <&3
}
use() {
  local server=CS_throttle:t1:disk:/srv/store service
  ip link set lo up
  runuser -u vlsld -- vlsld --state /tmp/state &
  service=$!
  trap "kill $service; wait $service || true" EXIT
  for _ in $(seq 100); do
    ! (status) || break
    sleep 0.1
  done
  throttlectl config set THR:SAMPLE_INTERVAL=5 --server CS_throttle:global:disk:/srv/store
  sed -i 's/^THR:LOG_LEVEL=.*/THR:LOG_LEVEL=5/' /etc/throttling/libstspithrottling.conf
  throttlectl run backup /etc --server $server --lsu daily --name monday
  throttlectl run verify /etc --server $server --lsu daily --name monday
  throttlectl run restore --server $server --lsu daily --name monday --to /tmp/restored
  diff -r --no-dereference /etc /tmp/restored/etc
  throttlectl preview
  status | grep -F /srv/store
  grep -F '[DEBUG]' /var/log/throttling/vlcssc/throttlinglog_* >/dev/null
}
export -f status use
quietly unshare --net bash -euxc use
rm -r /srv/store /tmp/restored /tmp/state

say "removing"
quietly apt-get -q remove -y "${names[@]}"
[ -f /etc/throttling/libstspithrottling.conf ] && grep -q 'lease 600' /etc/default/vlsld ||
  fail "the settings went with the programs"
! command -v vlsld throttlectl || fail "the programs are there"

say "purging"
quietly dpkg --purge "${names[@]}" # apt forgets those of which nothing is left
[ -z "$(ours)" ] || fail "a purge leaves $(ours)"
! getent passwd vlsld || fail "a purge leaves the user"
[ -f /etc/throttling/libstspithrottling.conf ] || fail "a purge takes the operator's settings"
say "installed, upgraded, used, removed and purged: ${names[*]}"
