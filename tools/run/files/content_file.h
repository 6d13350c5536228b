// A file of a tree, open to be read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

class content_file {
  public:
    /// No file.
    content_file() = default;
    /// Follows no symbolic link and waits for no pipe's other end. errno says why it isn't open.
    explicit content_file(const std::string& path);
    /// The same of a `name` in an open directory.
    content_file(int directory, const std::string& name);
    ~content_file();
    content_file(content_file&& other) noexcept;
    content_file& operator=(content_file&&) = delete;
    content_file(const content_file&) = delete;
    content_file& operator=(const content_file&) = delete;

    bool is_open() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; } ///< -1: not open
    /// Bytes read; 0 at the end, -1 with the reason in errno.
    ssize_t read(void* buffer, size_t length, uint64_t position) const;

  private:
    int descriptor_ = -1;
};
