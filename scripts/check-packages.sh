#!/usr/bin/env bash
# Installs the packages of a directory in a fresh root of this machine's release, upgrades them from the version
# before, uses them, removes and purges them: scripts/check-packages.sh [DIR], by default build/packages.
#
# The version before is what build/packages-before holds, or else the same packages under a lower version.
# Needs root or sudo, to mount and to chroot.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/release-root.sh

case "${1:-}" in
  -*)
    sed -n '2,6s/^# \{0,1\}//p' "$0"
    [ "$1" = --help ] && exit 0
    exit 2 ;;
esac
if [ "$(id -u)" != 0 ]; then
  exec sudo --preserve-env "$0" "$@"
fi
packages=${1:-build/packages}
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
scratch=$(mktemp -d)
trap 'rm -rf --one-file-system "$scratch"' EXIT
root=$scratch/root

echo "making a fresh root of $release" >&2
if ! make_root "$release" "$root" ca-certificates iproute2 >"$scratch/root.log" 2>&1; then
  tail -n 20 "$scratch/root.log" >&2
  echo "$0: no root of $release can be made here" >&2
  exit 1
fi
mkdir "$root/packages" "$root/packages/before"
cp "$packages"/*.deb "$root/packages"
rm -f "$root"/packages/*-dbgsym_*
if [ -d build/packages-before ]; then
  cp build/packages-before/*.deb "$root/packages/before"
else
  for each in "$root"/packages/*.deb; do
    dpkg-deb --raw-extract "$each" "$scratch/package"
    # What they ask of each other is of the same version.
    sed -i "s/$(dpkg-deb --field "$each" Version)/0~before/g" "$scratch/package/DEBIAN/control"
    dpkg-deb --build --root-owner-group -Znone "$scratch/package" "$root/packages/before" >/dev/null
    rm -r "$scratch/package"
  done
fi
cp /etc/resolv.conf /etc/hosts "$root/etc/"
cp scripts/check-packages-inside.sh "$root/packages"

# Mounts and processes of its own, which end with it.
unshare --mount --pid --ipc --fork --kill-child bash -euc '
  root=$1
  mount --rbind /dev "$root/dev"
  mount -t tmpfs tmpfs "$root/dev/shm"
  mount -t proc proc "$root/proc"
  set --
  for each in http_proxy https_proxy no_proxy; do
    [ -z "${!each:-}" ] || set -- "$@" "$each=${!each}"
  done
  chroot "$root" /usr/bin/env -i HOME=/root TERM=dumb LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "$@" \
    bash /packages/check-packages-inside.sh || exit' bash "$root"
