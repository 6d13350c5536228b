// Names of the wire, whose narrow text is ISO 8859-1, as UTF-8. Its bytes are the first 256 code points, so
// different names look different.
#pragma once

#include <optional>
#include <string>

inline std::string utf8(const std::string& name) {
    std::string text;
    for (const char each : name) {
        const auto point = static_cast<unsigned char>(each);
        if (point < 0x80) {
            text += each;
        } else {
            text += static_cast<char>(0xc0 | point >> 6);
            text += static_cast<char>(0x80 | (point & 0x3f));
        }
    }
    return text;
}

/// The name whose UTF-8 is `text`; none: no name's is.
inline std::optional<std::string> latin1(const std::string& text) {
    std::string name;
    for (size_t at = 0; at < text.size(); ++at) {
        const auto first = static_cast<unsigned char>(text[at]);
        if (first < 0x80) {
            name += text[at];
        } else if ((first == 0xc2 || first == 0xc3) && at + 1 < text.size()) {
            name += static_cast<char>((first & 3) << 6 | (text[++at] & 0x3f));
        } else {
            return std::nullopt;
        }
    }
    return name;
}
