// Every entry that hands one call on and keeps nothing of it, beside the slot that it calls; and
// some that make a handle.
#pragma once

#include "bench/comparison.h"

#include <vector>

/// Loads the plugin, opens what the entries are called with and registers both benchmarks of each
/// entry. Returns the lines of their table. To be called once; what fails throws
/// std::runtime_error.
std::vector<comparison> register_forwarded_entries();
