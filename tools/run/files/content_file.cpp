#include "tools/run/files/content_file.h"

#include <fcntl.h>
#include <unistd.h>
#include <utility>

content_file::content_file(const std::string& path) : content_file(AT_FDCWD, path) {}

content_file::content_file(int directory, const std::string& name)
    : descriptor_(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
}

content_file::~content_file() {
    if (is_open()) {
        close(descriptor_);
    }
}

content_file::content_file(content_file&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {}

ssize_t content_file::read(void* buffer, size_t length, uint64_t position) const {
    return pread(descriptor_, buffer, length, static_cast<off_t>(position));
}
