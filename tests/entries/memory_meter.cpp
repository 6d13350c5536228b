#include "tests/entries/memory_meter.h"

#include <cerrno>
#include <cstddef>

namespace {

thread_local bool running = false;
thread_local memory_meter::refused refusing;
thread_local memory_meter::reading current;

/// Notes an allocation; false: it is to fail. What grows was there before, and is no block more.
bool allowed(bool grows = false) {
    if (!running) {
        return true;
    }
    ++current.asked;
    if (current.asked >= refusing.first && current.asked <= refusing.last) {
        errno = ENOMEM;
        return false;
    }
    current.kept += grows ? 0 : 1;
    return true;
}

} // namespace

namespace memory_meter {

void start(refused which) {
    current = {};
    refusing = which;
    running = true;
}

reading stop() {
    running = false;
    return current;
}

bool is_running() { return running; }

void set_running(bool now) { running = now; }

} // namespace memory_meter

// The linker sends the program's calls here (--wrap); operator new is among them, since that of the
// tests is made of these.
extern "C" {

void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size) { return allowed() ? __real_malloc(size) : nullptr; }

void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size) {
    return allowed() ? __real_calloc(count, size) : nullptr;
}

void* __real_realloc(void* memory, size_t size);
void* __wrap_realloc(void* memory, size_t size) {
    return allowed(memory != nullptr) ? __real_realloc(memory, size) : nullptr;
}

void* __real_reallocarray(void* memory, size_t count, size_t size);
void* __wrap_reallocarray(void* memory, size_t count, size_t size) {
    return allowed(memory != nullptr) ? __real_reallocarray(memory, count, size) : nullptr;
}

void* __real_aligned_alloc(size_t alignment, size_t size);
void* __wrap_aligned_alloc(size_t alignment, size_t size) {
    return allowed() ? __real_aligned_alloc(alignment, size) : nullptr;
}

int __real_posix_memalign(void** memory, size_t alignment, size_t size);
int __wrap_posix_memalign(void** memory, size_t alignment, size_t size) {
    return allowed() ? __real_posix_memalign(memory, alignment, size) : ENOMEM;
}

char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text) { return allowed() ? __real_strdup(text) : nullptr; }

char* __real_strndup(const char* text, size_t length);
char* __wrap_strndup(const char* text, size_t length) {
    return allowed() ? __real_strndup(text, length) : nullptr;
}

void __real_free(void* memory);
void __wrap_free(void* memory) {
    if (running && memory != nullptr) {
        --current.kept;
    }
    __real_free(memory);
}

} // extern "C"
