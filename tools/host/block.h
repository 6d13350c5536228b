// The size of a transfer, in bytes.
#pragma once

#include <cstdint>

constexpr uint64_t smallest_block = 512;
constexpr uint64_t default_block = uint64_t{256} * 1024;
constexpr uint64_t largest_block = uint64_t{1} << 30;
