#!/usr/bin/env bash
# Makes the Debian packages of this tree, for the release that it runs on, into build/packages/:
#
#   scripts/package.sh            makes them and looks them over with lintian
#   scripts/package.sh --twice    and makes them again in another directory: the same bytes
#   scripts/package.sh --check    and installs, upgrades, removes and purges them in a fresh root
#
# scripts/in-release.sh trixie scripts/package.sh makes those of another release, in its root. ccache is used
# where it is installed, with the cache of $CCACHE_DIR.
set -euo pipefail
cd "$(dirname "$0")/.."

twice=no
check=no
for each in "$@"; do
  case "$each" in
    --twice) twice=yes ;;
    --check) check=yes ;;
    *)
      sed -n '2,9s/^# \{0,1\}//p' "$0"
      [ "$each" = --help ] && exit 0
      exit 2 ;;
  esac
done

scripts/install-deps.sh package
# A package is built with a home of its own. Paths that the cache rewrites would stand in what is made.
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR= CCACHE_HASHDIR=true
  export CCACHE_DIR=${CCACHE_DIR:-$(ccache --get-config cache_dir)}
  config=${CCACHE_CONFIGPATH:-${XDG_CONFIG_HOME:-$HOME/.config}/ccache/ccache.conf}
  [ ! -f "$config" ] || export CCACHE_CONFIGPATH=$config
fi
out=$PWD/build/packages
mkdir -p build

# The version names the release: what is installed on the older one is replaced when a host moves on.
. /etc/os-release
version=$(dpkg-parsechangelog -S Version)~deb$VERSION_ID

# files: those of the tree, uncommitted ones too; where there is no repository, all.
files() {
  if git -c safe.directory="$PWD" rev-parse --git-dir >/dev/null 2>&1; then
    git -c safe.directory="$PWD" ls-files -z --cached --others --exclude-standard
  else
    find . -path ./build -prune -o ! -type d -print0
  fi
}

# make_packages DIR: builds this tree, as it is, in a directory of its own below DIR.
make_packages() {
  local tree=$1/libstspithrottling-$version
  rm -rf "$1"
  mkdir -p "$tree"
  files | tar -c --null --ignore-failed-read -T - 2>/dev/null | tar -x -C "$tree" --no-same-owner
  sed -i "1s/(.*)/($version)/" "$tree/debian/changelog"
  echo "making packages in $1" >&2
  if ! (cd "$tree" && DEB_BUILD_OPTIONS="parallel=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)} ${DEB_BUILD_OPTIONS:-}" \
        dpkg-buildpackage --build=binary --no-sign) >"$1/build.log" 2>&1; then
    tail -n 100 "$1/build.log" >&2
    echo "$0: building the packages failed ($1/build.log)" >&2
    exit 1
  fi
}

make_packages "$PWD/build/package"
if [ "$twice" = yes ]; then
  # The cache would hide what differs.
  CCACHE_DISABLE=1 make_packages "$PWD/build/package-again/in/another/directory"
  for each in build/package/*.deb; do
    cmp "$each" "build/package-again/in/another/directory/${each##*/}"
  done
  echo "made twice, the same bytes" >&2
  rm -rf build/package-again
fi
rm -rf "$out"
mkdir "$out"
mv build/package/*.deb build/package/*.changes build/package/*.buildinfo build/package/build.log "$out"
rm -rf build/package
lintian --allow-root --fail-on error,warning "$out"/*.changes
if [ "$check" = yes ]; then
  scripts/check-packages.sh "$out"
fi
(cd "$out" && ls -- *.deb)
