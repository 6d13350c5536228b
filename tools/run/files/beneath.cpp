#include "tools/run/files/beneath.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace {

constexpr int as_place = O_PATH;
constexpr mode_t for_us_alone = 0700;
constexpr int most_attempts = 16;

/// Takes the first name off a path.
std::string_view next_name(std::string_view& path) {
    const size_t slash = path.find('/');
    const std::string_view name = path.substr(0, slash);
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    return name;
}

descriptor open_name(int parent, const std::string& name, int flags) {
    return descriptor(openat(parent, name.c_str(), flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// -1, with the reason in errno, where the kernel has no such call or a filter keeps it from us.
int resolve(int top, const char* path, int flags) {
    open_how how = {};
    how.flags = static_cast<unsigned>(flags | O_DIRECTORY | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    long opened = -1;
    int attempts = 0;
    do { // EAGAIN: something was renamed meanwhile
        opened = syscall(SYS_openat2, top, path, &how, sizeof how);
    } while (opened < 0 && (errno == EAGAIN || errno == EINTR) && ++attempts < most_attempts);
    return static_cast<int>(opened);
}

bool kernel_resolves(int top) { return descriptor(resolve(top, ".", as_place)).is_open(); }

/// What stands for `path`, name by name; missing ones are made where `makes` says so.
descriptor walk(int top, std::string_view path, int flags, bool makes) {
    descriptor place = open_name(top, ".", path.empty() ? flags : as_place);
    while (place.is_open() && !path.empty()) {
        const std::string name(next_name(path));
        if (name == "..") { // as the kernel answers it
            errno = EXDEV;
            return {};
        }
        if (makes && mkdirat(place.get(), name.c_str(), for_us_alone) != 0 && errno != EEXIST) {
            return {};
        }
        place = open_name(place.get(), name, path.empty() ? flags : as_place);
    }
    return place;
}

} // namespace

std::optional<std::string> path_beneath(const std::string& name, std::string& reason) {
    if (name.empty()) {
        reason = "it has no name";
        return {};
    }
    if (name.size() >= PATH_MAX) {
        reason = "the path is too long";
        return {};
    }
    if (name.front() == '/') {
        reason = "the path is absolute";
        return {};
    }
    std::string path;
    for (std::string_view rest = name; !rest.empty();) {
        const std::string_view each = next_name(rest);
        if (each == "..") {
            reason = "the path contains \"..\"";
            return {};
        }
        if (!each.empty() && each != ".") {
            path += path.empty() ? "" : "/";
            path += each;
        }
    }
    return path;
}

std::string parent_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash != std::string::npos ? path.substr(0, slash) : "";
}

std::string leaf_of(const std::string& path) { return path.substr(path.rfind('/') + 1); }

beneath::beneath(descriptor top)
    : top_(std::move(top)), is_resolved_by_kernel_(kernel_resolves(top_.get())) {}

descriptor beneath::open_directory(const std::string& path, int flags) const {
    if (is_resolved_by_kernel_) {
        return descriptor(resolve(top_.get(), path.empty() ? "." : path.c_str(), flags));
    }
    return walk(top_.get(), path, flags, false);
}

descriptor beneath::make_directories(const std::string& path) const {
    descriptor found = open_directory(path, as_place);
    if (!found.is_open() && errno == ENOENT) {
        return walk(top_.get(), path, as_place, true);
    }
    return found;
}
