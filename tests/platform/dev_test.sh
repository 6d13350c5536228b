#!/bin/sh
# Whoever has installed the components dev and platform builds against them, by CMake and by pkg-config, and
# reaches the storage library.
#
# Usage: dev_test.sh CMAKE BUILD_DIR CXX
set -eu
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for component in dev platform; do
  "$1" --install "$2" --component "$component" --prefix "$scratch/a prefix" >/dev/null
done
mkdir "$scratch/user"
cat >"$scratch/user/main.cpp" <<'END'
#include <plugin/stspi_entries.h>
#include <platform/common/vlcommon.h>
#include <platform/sts/sts_records.h>

int main() {
    char directory[4096];
    const sts_api_t* table = nullptr;
    return stsm_init(11, "", &table) == STS_ERR_VERSION && GetConfDir(directory, sizeof directory) == 0 ? 0 : 1;
}
END
cat >"$scratch/user/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(user LANGUAGES CXX)
find_package(libstspithrottling 9.1 REQUIRED CONFIG)
add_executable(user main.cpp)
target_link_libraries(user PRIVATE libstspithrottling::sts libstspithrottling::vlcommon)
END
"$1" -S "$scratch/user" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$scratch/a prefix" -DCMAKE_CXX_COMPILER="$3" \
  -DCMAKE_CXX_FLAGS="${CXXFLAGS:-}" >"$scratch/log" 2>&1 && "$1" --build "$scratch/build" >>"$scratch/log" 2>&1 || {
  cat "$scratch/log" >&2
  exit 1
}
"$scratch/build/user"

pc=$(find "$scratch/a prefix" -name libstspithrottling.pc)
flags=$(PKG_CONFIG_PATH=${pc%/*} pkg-config --define-prefix --cflags --libs libstspithrottling)
eval "\"$3\" -std=c++17 ${CXXFLAGS:-} \"\$scratch/user/main.cpp\" $flags -o \"\$scratch/user/main\""
LD_LIBRARY_PATH="${pc%/pkgconfig/*}" "$scratch/user/main"
