#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need. Does nothing, and needs no
# rights, when they are all there. For Debian 12.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git
  libarchive-dev libcli11-dev libcpp-httplib-dev libcurl4-openssl-dev libfmt-dev libmicrohttpd-dev
  libssl-dev libxxhash-dev nlohmann-json3-dev
  libace-dev libcos4-dev libomniorb4-dev omniidl omniorb-idl python3
  libgtest-dev libgmock-dev libbenchmark-dev libxml2-utils chromium openssl
)
case "${1:-}" in
  "") ;;
  --all) # what CI and the benchmarks use besides
    packages+=(clang clang-format clang-tidy libclang-rt-14-dev fio pv) ;;
  *)
    echo "usage: $0 [--all]" >&2
    exit 2 ;;
esac

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
