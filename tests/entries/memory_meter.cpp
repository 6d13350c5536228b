#include "tests/entries/memory_meter.h"

#include <cstddef>

namespace {

thread_local bool running = false;
thread_local bool refusing = false;
thread_local memory_meter::reading current;

/// Notes an allocation; false: it is to fail.
bool allowed() {
    if (!running) {
        return true;
    }
    ++current.asked;
    if (refusing) {
        return false;
    }
    ++current.kept;
    return true;
}

} // namespace

namespace memory_meter {

void start(bool refuse) {
    current = {};
    refusing = refuse;
    running = true;
}

reading stop() {
    running = false;
    return current;
}

} // namespace memory_meter

pause_metering::pause_metering() : was_running_(running) { running = false; }

pause_metering::~pause_metering() { running = was_running_; }

// The linker sends the program's calls here (--wrap); operator new is among them, since that of the
// tests is made of malloc.
extern "C" {

void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size) { return allowed() ? __real_malloc(size) : nullptr; }

void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size) {
    return allowed() ? __real_calloc(count, size) : nullptr;
}

void __real_free(void* memory);
void __wrap_free(void* memory) {
    if (running && memory != nullptr) {
        --current.kept;
    }
    __real_free(memory);
}

} // extern "C"
