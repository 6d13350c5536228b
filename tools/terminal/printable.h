// Names as they may be shown: they come from trees and images, and may hold anything.
#pragma once

#include <string>

/// `text` with control characters as "\n" or "\x1b" and a backslash doubled, so that no name moves
/// the cursor or looks like another.
std::string printable(const std::string& text);
