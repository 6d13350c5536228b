#!/usr/bin/env bash
# Installs the Debian packages that are missing: scripts/install-deps.sh [SET...]
#
#   (none)       what building and running it needs
#   smoke        and what the tests of the wire need
#   tests        and what all tests need
#   sanitizers   and what the tests need as clang builds them
#   all          and what CI uses besides
#   bench        what all tests need, and what the benchmarks set beside the plugin
#   package      and what makes and checks the Debian packages
#
# Does nothing, and needs no rights, when they are all there.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libarchive-dev libcli11-dev libcurl4-openssl-dev libfmt-dev libmicrohttpd-dev libssl-dev libxxhash-dev
  nlohmann-json3-dev
  libace-dev libcos4-dev libomniorb4-dev omniidl omniorb-idl python3
)
smoke=(libgtest-dev libgmock-dev)
tests=("${smoke[@]}" git libcpp-httplib-dev libbenchmark-dev libxml2-utils chromium openssl
  logrotate man-db scdoc)
sanitizers=(clang libclang-rt-dev)
package=(build-essential debhelper fakeroot git lintian mmdebstrap scdoc)
peers=(curl fio libnbd-bin nbdkit pv rclone)

for set in "$@"; do
  case "$set" in
    smoke) packages+=("${smoke[@]}") ;;
    tests) packages+=("${tests[@]}") ;;
    sanitizers) packages+=("${tests[@]}" "${sanitizers[@]}") ;;
    all) packages+=("${tests[@]}" "${sanitizers[@]}" clang-format clang-tidy) ;;
    bench) packages+=("${tests[@]}" "${peers[@]}") ;;
    package) packages+=("${package[@]}") ;;
    *)
      sed -n '2,12s/^# \{0,1\}//p' "$0" >&2
      exit 2 ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  if [ "$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null)" != "install ok installed" ]; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -gt 0 ] || exit 0

run=()
if [ "$(id -u)" != 0 ]; then
  run=(sudo)
fi
echo "installing: ${missing[*]}" >&2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
export DEBIAN_FRONTEND=noninteractive
if ! { "${run[@]}" apt-get -q update && "${run[@]}" apt-get -q install -y --no-install-recommends \
       "${missing[@]}"; } </dev/null >"$log" 2>&1; then
  cat "$log" >&2
  echo "$0: apt-get could not install: ${missing[*]}" >&2
  exit 1
fi
