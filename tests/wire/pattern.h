// Octets as a test spells them out: hexadecimal digits, ".." for one that isn't held, as those are
// that only align, and anything behind "|" up to the line's end for the reader.
#pragma once

#include "tests/support/giop.h"

#include <gtest/gtest.h>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace wire {

inline std::vector<std::optional<unsigned char>> parse_pattern(const std::string& pattern) {
    std::vector<std::optional<unsigned char>> octets;
    std::istringstream lines(pattern);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('|')));
        for (std::string word; words >> word;) {
            if (word == "..") {
                octets.emplace_back();
            } else {
                octets.emplace_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
            }
        }
    }
    return octets;
}

/// The pattern's octets, 0 for those that aren't held.
inline giop::octets octets_of(const std::string& pattern) {
    giop::octets octets;
    for (const std::optional<unsigned char>& octet : parse_pattern(pattern)) {
        octets.push_back(octet.value_or(0));
    }
    return octets;
}

inline testing::AssertionResult match(const std::string& pattern, const giop::octets& octets) {
    const std::vector<std::optional<unsigned char>> expected = parse_pattern(pattern);
    bool same = expected.size() == octets.size();
    for (std::size_t i = 0; same && i < octets.size(); ++i) {
        same = expected[i].value_or(octets[i]) == octets[i];
    }
    if (same) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "expected:\n"
                                       << giop::hex(octets_of(pattern)) << "\nfound:\n"
                                       << giop::hex(octets);
}

} // namespace wire
