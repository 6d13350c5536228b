// Numbers that nobody can guess.
#pragma once

#include <cstdint>

/// From the system's own generator. Fails when it gives none.
uint64_t random_number();
