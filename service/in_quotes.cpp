#include "service/in_quotes.h"

#include <fmt/format.h>

std::string in_quotes(std::string_view text) {
    constexpr size_t longest = 128;
    std::string result = "\"";
    for (const char each : text.substr(0, longest)) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte < ' ' || byte == 0x7f) {
            result += fmt::format("\\x{:02x}", byte);
        } else {
            result +=
                each == '"' || each == '\\' ? fmt::format("\\{}", each) : std::string(1, each);
        }
    }
    return result + (text.size() > longest ? "...\"" : "\"");
}

std::string printable(std::string_view text) {
    std::string shown;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (each == '\\' || each == '\n') {
            shown += each == '\n' ? "\\n" : "\\\\";
        } else {
            shown +=
                byte < ' ' || byte == 0x7f ? fmt::format("\\x{:02x}", byte) : std::string(1, each);
        }
    }
    return shown;
}
