// What the program allocates and releases by operator new and delete, in order. Linking this in
// replaces them, also for what the program loads.
#pragma once

#include <cstddef>
#include <vector>

struct allocation {
    void* address;
    size_t size;
};

/// Starts and ends the trace; a start forgets the last one. For one thread, and up to 1024 of each.
void start_allocation_trace();
void end_allocation_trace();

std::vector<allocation> allocations();
std::vector<void*> releases();
