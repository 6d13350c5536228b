// What is wrong with a settings file, told before it bites: the plugin's own reader reads it, and
// what it makes of each line is compared with what the line says.
#pragma once

#include "config/throttling_util.h"

#include <cstdint>
#include <string>
#include <vector>

enum class finding_severity { error, warning };

struct settings_finding {
    finding_severity severity;
    int64_t line;       ///< from 1; 0: what no line says
    std::string key;    ///< as the file spells it, cut where it is long; empty: of no setting
    std::string wrong;  ///< what is wrong
    std::string effect; ///< what the plugin makes of it

    bool operator==(const settings_finding& other) const {
        return severity == other.severity && line == other.line && key == other.key &&
               wrong == other.wrong && effect == other.effect;
    }
};

struct checked_settings {
    enum { readable, missing, unreadable } state = readable;
    throttling_config_s config; ///< what the plugin makes of the file, its windows mended
    /// By line, those of none at the end; a thousand at most, the last of which then counts the
    /// rest. Keys and words hold bytes of the file as they are.
    std::vector<settings_finding> findings;

    size_t count(finding_severity severity) const;
};

/// Reads a mebibyte at most, and of what could block or never end nothing.
checked_settings check_settings(const char* path);

/// The same for a text in memory, which stands for a file.
checked_settings check_settings_text(const std::string& text);

/// "FILE:LINE: error: KEY: what is wrong; what the plugin makes of it".
std::string finding_text(const std::string& file, const settings_finding& finding);

/// Bytes that a size such as "100M", "12.5MB/s" or "104857600" stands for: k, M, G, T, P and E are
/// factors of 1024, with "B", "iB" or "/s" behind them or not. 0: that is no size, or none from 1
/// to 2^63 - 1.
uint64_t size_in(const std::string& text);
