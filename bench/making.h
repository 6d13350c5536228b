// The entries that make or release something, or that go to the settings' file: they allocate.
#pragma once

#include "bench/pairs.h"

/// Registers them. To be called once; what fails throws std::runtime_error.
void add_making_entries(pairs& all);
