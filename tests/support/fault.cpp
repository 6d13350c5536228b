#include "tests/support/fault.h"

#include "tests/support/next_function.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <new>
#include <sstream>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace {

struct planned_fault {
    int error;
    int times;
    int after;
};

std::map<std::string, planned_fault>& faults() {
    static std::map<std::string, planned_fault> all;
    return all;
}

std::string redirected_from;
std::string redirected_to;
std::string last_path;
std::mutex files_guard; // of the faults, the paths and the calls kept

std::atomic<bool> watching{false};
std::vector<std::string>& calls() {
    static std::vector<std::string> all;
    return all;
}

std::atomic<int> news_left{-1};
std::atomic<long> allocations{0};
std::mutex retained_guard;
int retaining = 0;
std::vector<void*>* retained = nullptr;

/// Keeps one call and what it was asked for, if somebody watches.
template <typename... Parts>
void keep(const Parts&... parts) {
    if (watching) {
        const std::lock_guard<std::mutex> lock(files_guard);
        std::ostringstream text;
        (text << ... << parts);
        calls().push_back(text.str());
    }
}

/// Whether the call is to fail now; sets errno.
bool fails(const char* call) {
    const std::lock_guard<std::mutex> lock(files_guard);
    if (faults().empty()) {
        return false;
    }
    const auto found = faults().find(call);
    if (found == faults().end() || found->second.times <= 0) {
        return false;
    }
    if (found->second.after > 0) {
        --found->second.after;
        return false;
    }
    --found->second.times;
    if (found->second.error != 0) {
        errno = found->second.error;
    }
    return true;
}

/// Where that path is opened in truth.
std::string target_of(const char* path) {
    const std::lock_guard<std::mutex> lock(files_guard);
    last_path = path;
    if (redirected_from.empty() || last_path.rfind(redirected_from, 0) != 0) {
        return path;
    }
    return redirected_to + last_path.substr(redirected_from.size());
}

/// Memory for operator new; `alignment` 0: for anything of the usual kind.
void* allocate(size_t size, size_t alignment = 0) {
    ++allocations;
    if (news_left >= 0 && news_left-- == 0) {
        return nullptr;
    }
    size = size != 0 ? size : 1;
    return alignment == 0
               ? malloc(size)
               : aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* allocate_or_throw(size_t size, size_t alignment = 0) {
    void* const memory = allocate(size, alignment);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
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

void fail(const std::string& call, int error, int times, int after) {
    faults()[call] = {error, times, after};
}

void redirect(const std::string& directory, const std::string& instead) {
    redirected_from = directory;
    redirected_to = instead;
}

const std::string& last_opened() { return last_path; }

void watch_calls() {
    calls().clear();
    watching = true;
}

std::vector<std::string> take_calls() {
    watching = false;
    return std::exchange(calls(), {});
}

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
    take_calls();
    news_left = -1;
}

} // namespace fault

#define REPLACES __attribute__((visibility("default")))

extern "C" {

REPLACES FILE* fopen(const char* path, const char* mode) {
    keep("fopen ", path, " ", mode);
    const std::string target = target_of(path);
    return fails("fopen")
               ? nullptr
               : next_function<FILE*(const char*, const char*)>("fopen")(target.c_str(), mode);
}

REPLACES int fputs(const char* text, FILE* file) {
    keep("fputs");
    return fails("fputs") ? EOF : next_function<int(const char*, FILE*)>("fputs")(text, file);
}

REPLACES int fflush(FILE* file) {
    keep("fflush");
    return next_function<int(FILE*)>("fflush")(file);
}

REPLACES int fclose(FILE* file) {
    keep("fclose");
    const bool failing = fails("fclose");
    const int status = next_function<int(FILE*)>("fclose")(file);
    return failing ? EOF : status;
}

REPLACES char* fgets(char* line, int size, FILE* file) {
    return fails("fgets") ? nullptr
                          : next_function<char*(char*, int, FILE*)>("fgets")(line, size, file);
}

REPLACES int chmod(const char* path, mode_t mode) noexcept {
    keep("chmod ", path, " ", std::oct, mode);
    return fails("chmod") ? -1 : next_function<int(const char*, mode_t)>("chmod")(path, mode);
}

REPLACES int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (command == F_SETLKW) {
        const auto& range = *static_cast<const struct flock*>(argument);
        const bool whole = range.l_whence == SEEK_SET && range.l_start == 0 && range.l_len == 0;
        keep(range.l_type == F_UNLCK ? "unlock" : "lock", whole ? "" : " part");
        if (fails("fcntl")) {
            return -1;
        }
    }
    return next_function<int(int, int, ...)>("fcntl")(descriptor, command, argument);
}

REPLACES int onet_chown_service_user_if_root(const char* path, int flags) {
    keep("onet_chown_service_user_if_root ", path, " ", flags);
    return fails("onet_chown_service_user_if_root")
               ? -1
               : next_function<int(const char*, int)>("onet_chown_service_user_if_root")(path,
                                                                                         flags);
}

} // extern "C"

// All forms of operator new and delete, since none may meet memory of another's.

REPLACES void* operator new(size_t size) { return allocate_or_throw(size); }

REPLACES void* operator new[](size_t size) { return allocate_or_throw(size); }

REPLACES void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size); }

REPLACES void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}

REPLACES void* operator new(size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<size_t>(alignment));
}

REPLACES void* operator new[](size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<size_t>(alignment));
}

REPLACES void* operator new(size_t size, std::align_val_t alignment,
                            const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<size_t>(alignment));
}

REPLACES void* operator new[](size_t size, std::align_val_t alignment,
                              const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<size_t>(alignment));
}

REPLACES void operator delete(void* memory) noexcept { release(memory); }

REPLACES void operator delete(void* memory, size_t) noexcept { release(memory); }

REPLACES void operator delete[](void* memory) noexcept { release(memory); }

REPLACES void operator delete[](void* memory, size_t) noexcept { release(memory); }

REPLACES void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }

REPLACES void operator delete(void* memory, size_t, std::align_val_t) noexcept { release(memory); }

REPLACES void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }

REPLACES void operator delete[](void* memory, size_t, std::align_val_t) noexcept {
    release(memory);
}
