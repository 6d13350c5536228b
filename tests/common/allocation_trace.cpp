#include "tests/common/allocation_trace.h"

#include <cstdlib>
#include <new>

namespace {

/// Up to 1024 items, kept without allocating.
template <typename Item>
struct record {
    void add(const Item& item) {
        if (count < sizeof items / sizeof *items) {
            items[count++] = item;
        }
    }
    std::vector<Item> all() const { return {items, items + count}; }

    Item items[1024];
    size_t count;
};

bool tracing = false;
record<allocation> allocated;
record<void*> released;

} // namespace

void start_allocation_trace() {
    allocated.count = 0;
    released.count = 0;
    tracing = true;
}

void end_allocation_trace() { tracing = false; }

std::vector<allocation> allocations() { return allocated.all(); }

std::vector<void*> releases() { return released.all(); }

void* operator new(size_t size) {
    void* const address = malloc(size);
    if (address == nullptr) {
        throw std::bad_alloc();
    }
    if (tracing) {
        allocated.add({address, size});
    }
    return address;
}

void operator delete(void* address) noexcept {
    if (tracing) {
        released.add(address);
    }
    free(address);
}

void operator delete(void* address, size_t) noexcept { operator delete(address); }
