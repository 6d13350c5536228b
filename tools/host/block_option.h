// --block: the size of a transfer.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

constexpr uint64_t smallest_block = 512;
constexpr uint64_t largest_block = uint64_t{1} << 30;

/// Adds the option to `app`: bytes, or with k, M or G (factors of 1024) behind the number. `block`
/// keeps its value as the default.
inline CLI::Option* add_block_option(CLI::App& app, uint64_t& block) {
    return app.add_option("--block", block, "Bytes of a transfer, 512 to 1G, as in 64k or 1M")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->check(CLI::Range(smallest_block, largest_block).description(""))
        ->type_name("SIZE")
        ->capture_default_str();
}
