#include "tests/client/virtual_seconds.h"

#include <dlfcn.h>
#include <unistd.h>
#include <utility>

namespace {

thread_local virtual_seconds* current = nullptr;

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

virtual_seconds::virtual_seconds(time_t start) : now_(start) { current = this; }

virtual_seconds::~virtual_seconds() { current = nullptr; }

std::vector<unsigned> virtual_seconds::take_sleeps() { return std::exchange(sleeps_, {}); }

unsigned virtual_seconds::sleep(unsigned seconds) {
    sleeps_.push_back(seconds);
    now_ += seconds;
    return 0;
}

extern "C" {

__attribute__((visibility("default"))) time_t time(time_t* out) noexcept {
    if (current == nullptr) {
        return real<time_t(time_t*)>("time")(out);
    }
    if (out != nullptr) {
        *out = current->now();
    }
    return current->now();
}

__attribute__((visibility("default"))) unsigned sleep(unsigned seconds) {
    return current != nullptr ? current->sleep(seconds)
                              : real<unsigned(unsigned)>("sleep")(seconds);
}

} // extern "C"
