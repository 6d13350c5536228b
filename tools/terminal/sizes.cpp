#include "tools/terminal/sizes.h"

#include <ctime>
#include <fmt/format.h>

namespace {

constexpr size_unit units[] = {
    {"B", 1.0},
    {"KiB", 1024.0},
    {"MiB", 1024.0 * 1024},
    {"GiB", 1024.0 * 1024 * 1024},
    {"TiB", 1024.0 * 1024 * 1024 * 1024},
    {"PiB", 1024.0 * 1024 * 1024 * 1024 * 1024},
};

} // namespace

size_unit unit_for(double largest) {
    size_unit fitting = units[0];
    for (const size_unit& unit : units) {
        if (largest >= unit.bytes) {
            fitting = unit;
        }
    }
    return fitting;
}

std::string size_text(double bytes) {
    const size_unit unit = unit_for(bytes);
    return fmt::format("{:.{}f} {}", bytes / unit.bytes, unit.bytes > 1 ? 1 : 0, unit.name);
}

std::string rate_text(std::optional<double> bytes_per_second) {
    return bytes_per_second ? size_text(*bytes_per_second) + "/s" : "unlimited";
}

tm local_time(time_t when) {
    tm local = {};
    localtime_r(&when, &local);
    return local;
}

std::string time_text(time_t when, const char* format) {
    const tm local = local_time(when);
    char text[64] = "";
    strftime(text, sizeof text, format, &local);
    return text;
}
