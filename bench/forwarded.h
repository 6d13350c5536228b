// Every entry that hands its call on, beside the slot or slots that it calls.
#pragma once

#include "bench/comparison.h"

#include <vector>

/// Loads the plugin, opens what the entries are called with and registers both benchmarks of each
/// entry. Returns the lines of their table. To be called once; what fails throws
/// std::runtime_error.
std::vector<comparison> register_forwarded_entries();
