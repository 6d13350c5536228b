// Sizes, rates and times as people read them. All factors of sizes are 1024.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

/// "0 B", "12.3 KiB", "100.0 MiB", ...
std::string size_text(double bytes);
inline std::string size_text(uint64_t bytes) { return size_text(static_cast<double>(bytes)); }

/// The same "/s", or "unlimited".
std::string rate_text(std::optional<double> bytes_per_second);

/// A unit that shows `largest` bytes as a number from 1 to 1023.
struct size_unit {
    const char* name;
    double bytes;
};
size_unit unit_for(double largest);

tm local_time(time_t when);

/// Local time, "2026-11-21 14:03:22", or as strftime's `format` says, of 63 bytes at most.
std::string time_text(time_t when, const char* format = "%Y-%m-%d %H:%M:%S");
