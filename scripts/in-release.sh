#!/usr/bin/env bash
# Runs a command of this tree in a root of another Debian release: scripts/in-release.sh RELEASE COMMAND...
#
#   scripts/in-release.sh trixie scripts/test.sh
#
# The root is made from this machine's own package sources, once, in $RELEASE_ROOTS (by default
# /var/tmp/release-roots) and kept, with what the command installs and builds in it; remove its directory
# for a fresh one. Each run takes the files of this tree along anew, uncommitted ones too. Where ccache is
# installed the root has it too, with a cache beside the roots. Needs root or sudo, to mount and to chroot;
# one line says why where that, or the release, can't be had.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/release-root.sh

if [ $# -lt 2 ]; then
  sed -n '2,10s/^# \{0,1\}//p' "$0"
  [ "${1:-}" = --help ] && exit 0
  exit 2
fi
no_root() {
  echo "$0: no root of $1 can be made here: $2" >&2
  exit 1
}
if [ "$(id -u)" != 0 ]; then
  command -v sudo >/dev/null || no_root "$1" "it takes root's rights, or sudo"
  exec sudo --preserve-env=RELEASE_ROOTS,CMAKE_BUILD_PARALLEL_LEVEL "$0" "$@"
fi
release=$1
shift
case "$release" in
  "" | *[!a-z-]*)
    echo "$0: \"$release\" is no release's name, such as trixie" >&2
    exit 2 ;;
esac
roots=${RELEASE_ROOTS:-/var/tmp/release-roots}
root=$roots/$release

mkdir -p "$roots/ccache"
if ! reason=$(unshare --mount --pid --ipc --fork mount -t tmpfs tmpfs "$roots" 2>&1); then
  no_root "$release" "$reason"
fi
if [ ! -d "$root" ]; then
  echo "making a root of $release" >&2
  [ -n "$(sources "$release")" ] || no_root "$release" "none of this machine's package sources is named after its own release"
  log=$roots/$release.log
  if ! make_root "$release" "$root" ca-certificates $(! command -v ccache >/dev/null || echo ccache) >"$log" 2>&1; then
    rm -rf --one-file-system "$root.new"
    no_root "$release" "$(grep -m 1 '^E: ' "$log") ($log)"
  fi
fi

# The tree as it is here, its build folder as it is there. What hasn't changed is left alone, and what
# has gets a new time, so that a build there sees just that.
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
git -c safe.directory="$PWD" ls-files -z --cached --others --exclude-standard | tar -c --null --ignore-failed-read -T - 2>/dev/null |
  tar -x -m -C "$tree" --no-same-owner
mkdir -p "$root/src" "$root/var/cache/ccache"
list() { (cd "$1" && find . -path ./build -prune -o ! -type d -print | sort); }
comm -13 <(list "$tree") <(list "$root/src") | (cd "$root/src" && xargs -r -d '\n' rm -f)
list "$tree" | while IFS= read -r file; do
  if ! cmp -s "$tree/$file" "$root/src/$file"; then
    mkdir -p "$(dirname "$root/src/$file")"
    cp -P --preserve=mode "$tree/$file" "$root/src/$file"
  fi
done
rm -rf "$tree"
cp /etc/resolv.conf /etc/hosts "$root/etc/"

# Mounts, processes and semaphores of its own, which all end with the command.
exec unshare --mount --pid --ipc --fork --kill-child bash -euc '
  root=$1 cache=$2
  shift 2
  mount --bind "$cache" "$root/var/cache/ccache"
  mount --rbind /dev "$root/dev"
  mount -t tmpfs tmpfs "$root/dev/shm"
  mount -t proc proc "$root/proc"
  for each in http_proxy https_proxy no_proxy CMAKE_BUILD_PARALLEL_LEVEL; do
    [ -z "${!each:-}" ] || set -- "$each=${!each}" "$@"
  done
  # The first process of a namespace has no other end by a signal, and so has to stay the one that has these.
  trap "exit 130" INT
  trap "exit 143" TERM
  chroot "$root" /usr/bin/env -i HOME=/root TERM=dumb LC_ALL=C.UTF-8 CCACHE_DIR=/var/cache/ccache \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    "$@" || exit' bash "$root" "$roots/ccache" bash -c 'cd /src && exec "$@"' bash "$@"
