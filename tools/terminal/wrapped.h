// Text that fits a terminal.
#pragma once

#include <cstddef>
#include <string>

constexpr size_t page_width = 80; ///< columns of what stands still, as a help does

/// A help in lines of `width` columns at most, where its words allow it. Lines of prose become one
/// paragraph up to a full stop, a colon or an indented line. What a row of a list says stays in its
/// column, the 31st, and a call goes on behind a backslash, so that it can be pasted.
std::string wrapped_help(const std::string& help, size_t width = page_width);
