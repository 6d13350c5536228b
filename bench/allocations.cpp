#include "bench/allocations.h"

#include <cstddef>

// The C library's own allocator under the names that it keeps for replacements such as this one.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {
thread_local long count __attribute__((tls_model("initial-exec"))) = 0;
} // namespace

long allocations() { return count; }

#pragma GCC visibility push(default)
extern "C" {

void* malloc(size_t size) {
    ++count;
    return __libc_malloc(size);
}

void* calloc(size_t members, size_t size) {
    ++count;
    return __libc_calloc(members, size);
}

void* realloc(void* memory, size_t size) {
    ++count;
    return __libc_realloc(memory, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    ++count;
    return __libc_memalign(alignment, size);
}

} // extern "C"
#pragma GCC visibility pop
