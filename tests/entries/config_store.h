// What the tests of the configuration share: a next layer with a text of its own below a server
// whose storage, s3, has a row in our file.
#pragma once

#include "tests/plugin/frame.h"

#include <array>

class ConfigStore : public Frame {
  protected:
    ConfigStore();

    /// Our own text, as the settings form it now.
    static std::string own_text();
    /// The connection limit of s3 in our file.
    std::string limit_in_file() const;
    /// A text that sets that limit.
    static std::string text_setting(int limit);
    /// What the entries said and called since the last time, the settings' lines left out.
    static lines take_entry_story();
    /// The whole buffer holds the text, then zeros up to `zeros_to`, and what it held before.
    static bool holds(const std::array<char, 16384>& buffer, const std::string& text,
                      size_t zeros_to);

    server_ptr server = open();
    server_ptr end = open("CS_throttle:global:");
    std::array<char, 16384> buffer;
};
