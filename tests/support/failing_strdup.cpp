#include "tests/support/failing_strdup.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {
bool failing = false;
}

failing_strdup::failing_strdup() { failing = true; }

failing_strdup::~failing_strdup() { failing = false; }

extern "C" __attribute__((visibility("default"))) char* strdup(const char* text) noexcept {
    const size_t size = strlen(text) + 1;
    auto* const copy = failing ? nullptr : static_cast<char*>(malloc(size));
    if (copy == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    return static_cast<char*>(memcpy(copy, text, size));
}
