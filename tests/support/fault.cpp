#include "tests/support/fault.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <new>
#include <sys/stat.h>
#include <vector>

namespace {

struct planned_fault {
    int error;
    int times;
};

std::map<std::string, planned_fault>& faults() {
    static std::map<std::string, planned_fault> all;
    return all;
}

std::string redirected_from;
std::string redirected_to;
std::string last_path;

std::atomic<int> news_left{-1};
std::atomic<long> allocations{0};
std::mutex retained_guard;
int retaining = 0;
std::vector<void*>* retained = nullptr;

/// Whether the call is to fail now; sets errno.
bool fails(const char* call) {
    if (faults().empty()) {
        return false;
    }
    const auto found = faults().find(call);
    if (found == faults().end() || found->second.times <= 0) {
        return false;
    }
    --found->second.times;
    errno = found->second.error;
    return true;
}

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void* allocate(size_t size) {
    ++allocations;
    if (news_left >= 0 && news_left-- == 0) {
        return nullptr;
    }
    return malloc(size != 0 ? size : 1);
}

void release(void* memory) {
    if (memory == nullptr) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(retained_guard);
        if (retaining > 0) {
            const int kept = retaining; // the vector's own memory goes through here too
            retaining = 0;
            retained->push_back(memory);
            retaining = kept;
            return;
        }
    }
    free(memory);
}

} // namespace

namespace fault {

void fail(const std::string& call, int error, int times) { faults()[call] = {error, times}; }

void redirect(const std::string& directory, const std::string& instead) {
    redirected_from = directory;
    redirected_to = instead;
}

const std::string& last_opened() { return last_path; }

void fail_new_after(int count) { news_left = count; }

long take_allocations() { return allocations.exchange(0); }

retained_memory::retained_memory() {
    auto* const list = new std::vector<void*>;
    list->reserve(1 << 16); // so that keeping a block never needs memory of its own
    const std::lock_guard<std::mutex> lock(retained_guard);
    retained = list;
    ++retaining;
}

retained_memory::~retained_memory() {
    std::vector<void*>* list = nullptr;
    {
        const std::lock_guard<std::mutex> lock(retained_guard);
        retaining = 0;
        std::swap(list, retained);
    }
    for (void* each : *list) {
        free(each);
    }
    delete list;
}

void clear() {
    faults().clear();
    redirected_from.clear();
    redirected_to.clear();
    last_path.clear();
    news_left = -1;
}

} // namespace fault

#define REPLACES __attribute__((visibility("default")))

extern "C" {

REPLACES FILE* fopen(const char* path, const char* mode) {
    last_path = path;
    if (fails("fopen")) {
        return nullptr;
    }
    std::string target = path;
    if (!redirected_from.empty() && target.rfind(redirected_from, 0) == 0) {
        target = redirected_to + target.substr(redirected_from.size());
    }
    return real<FILE*(const char*, const char*)>("fopen")(target.c_str(), mode);
}

REPLACES int fputs(const char* text, FILE* file) {
    return fails("fputs") ? EOF : real<int(const char*, FILE*)>("fputs")(text, file);
}

REPLACES int fclose(FILE* file) {
    const bool failing = fails("fclose");
    const int status = real<int(FILE*)>("fclose")(file);
    return failing ? EOF : status;
}

REPLACES char* fgets(char* line, int size, FILE* file) {
    return fails("fgets") ? nullptr : real<char*(char*, int, FILE*)>("fgets")(line, size, file);
}

REPLACES int chmod(const char* path, mode_t mode) noexcept {
    return fails("chmod") ? -1 : real<int(const char*, mode_t)>("chmod")(path, mode);
}

REPLACES int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (command == F_SETLKW && fails("fcntl")) {
        return -1;
    }
    return real<int(int, int, ...)>("fcntl")(descriptor, command, argument);
}

REPLACES int onet_chown_service_user_if_root(const char* path, int flags) {
    return fails("onet_chown_service_user_if_root")
               ? -1
               : real<int(const char*, int)>("onet_chown_service_user_if_root")(path, flags);
}

} // extern "C"

REPLACES void* operator new(size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

REPLACES void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size); }

REPLACES void* operator new[](size_t size) { return operator new(size); }

REPLACES void operator delete(void* memory) noexcept { release(memory); }

REPLACES void operator delete(void* memory, size_t) noexcept { release(memory); }

REPLACES void operator delete[](void* memory) noexcept { release(memory); }

REPLACES void operator delete[](void* memory, size_t) noexcept { release(memory); }
