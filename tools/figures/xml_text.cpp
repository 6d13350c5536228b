#include "tools/figures/xml_text.h"

#include "tools/terminal/tables.h"

namespace {

/// UTF-8 with what is none replaced.
std::string valid_utf8(const std::string& text) {
    return ordered_json::parse(dumped(ordered_json(text))).get<std::string>();
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
}

} // namespace

std::string xml_text(const std::string& text) {
    std::string escaped;
    for (const char each : valid_utf8(text)) {
        switch (each) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped += static_cast<unsigned char>(each) < ' ' ? '?' : each;
        }
    }
    // The last two characters of the first plane, which XML has no place for.
    replace_all(escaped, "\xEF\xBF\xBE", "?");
    replace_all(escaped, "\xEF\xBF\xBF", "?");
    return escaped;
}
