#include "tools/terminal/printable.h"

#include <fmt/format.h>

std::string printable(const std::string& text) {
    std::string shown;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (each == '\\') {
            shown += "\\\\";
        } else if (each == '\n') {
            shown += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            shown += fmt::format("\\x{:02x}", byte);
        } else {
            shown += each;
        }
    }
    return shown;
}
