// Text from elsewhere in a message: in quotes, on one line, and no longer than a line may be.
#pragma once

#include <string>
#include <string_view>

/// `text` between quotes; quotes, backslashes and control characters are escaped, and what is
/// beyond 128 bytes is left out.
std::string in_quotes(std::string_view text);

/// A line that may hold anything, with its control characters and backslashes escaped.
std::string printable(std::string_view text);
