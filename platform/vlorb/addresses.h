// The addresses behind a name.
#pragma once

#include <string>
#include <vector>

/// Numeric addresses of `host`, in the resolver's order, 16 at most; `host` may be one itself.
/// Empty where it has none.
std::vector<std::string> addresses_of(const std::string& host);
