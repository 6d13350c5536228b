// What goes into the service's log, and how freely.
#pragma once

#include <string>
#include <utility>

/// Who can bring a line about, which decides how many of them are written; see log_budget.
enum class log_kind : unsigned char {
    change,  ///< something happened to sessions or storages
    refusal, ///< somebody sent what can't be answered
    orb      ///< something is wrong on a connection
};

struct log_line {
    log_line(std::string line,
             log_kind of = log_kind::change) // NOLINT(google-explicit-constructor)
        : text(std::move(line)), kind(of) {}
    log_line(const char* line) : text(line) {}           // NOLINT(google-explicit-constructor)
    operator const std::string&() const { return text; } // NOLINT(google-explicit-constructor)

    std::string text;
    log_kind kind = log_kind::change;
};
