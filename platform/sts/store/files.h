// Files and directories below a root that nothing may lead out of: everything is reached one
// component at a time from an open directory, and no component may be a symbolic link. What is made
// is its owner's alone. Failures are thrown (caller/failure.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace disk {

/// Owns a file descriptor; -1 is none.
class unique_fd {
  public:
    unique_fd() = default;
    explicit unique_fd(int descriptor) : descriptor_(descriptor) {}
    unique_fd(unique_fd&& other) noexcept : descriptor_(other.release()) {}
    unique_fd& operator=(unique_fd&& other) noexcept;
    ~unique_fd();

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ != -1; }
    int release();

  private:
    int descriptor_ = -1;
};

// --- names

/// Whether the name stays in its directory: not empty, not "." or "..", no "/", no zero byte and at
/// most as long as a file name can be (255 bytes).
bool is_plain_name(std::string_view name);

/// The text of a field of `size` bytes; STS_ERR_INVALID when it isn't terminated.
std::string text_of_field(const char* field, size_t size);

template <size_t size>
std::string text_of(const char (&field)[size]) {
    return text_of_field(field, size);
}

template <size_t size>
bool is_terminated(const char (&field)[size]) {
    return strnlen(field, size) < size;
}

/// Writes a text into a field of `size` bytes: cut to what fits, terminated, zeros to its end.
void fill_field(char* field, size_t size, std::string_view text);

template <size_t size>
void fill(char (&field)[size], std::string_view text) {
    fill_field(field, size, text);
}

// --- directories

unique_fd open_directory(int parent, const std::string& name);
/// Makes it first, for good, where there is none.
unique_fd make_directory(int parent, const std::string& name);
/// EEXIST's status where anything has that name.
void make_new_directory(int parent, const std::string& name);
/// Everything in it but "." and "..", sorted.
std::vector<std::string> names_in(int directory);
/// The directories among that.
std::vector<std::string> directories_in(int directory);
bool is_directory(int parent, const std::string& name);
/// Where an open file or directory is, for people.
std::string path_of(int opened);
/// Whether the open directory is the one that has that name there.
bool is_same_directory(int parent, const std::string& name, int opened);
/// A name that nobody uses in any directory of this machine's.
std::string unused_name();
/// Removes a directory that holds no further directories; what is already gone is no failure.
void remove_directory(int parent, const std::string& name) noexcept;

// --- files

/// Opens a regular file; EBADMSG when it is something else.
unique_fd open_file(int parent, const std::string& name, int flags);
/// Makes an empty file in the place of whatever has that name, for writing.
unique_fd make_file(int parent, const std::string& name);
/// Opens it for reading; none where there is no file of that name.
unique_fd find_file(int parent, const std::string& name);
uint64_t size_of(int file);
/// The size of a regular file that isn't opened; none where there is no such file.
std::optional<uint64_t> size_of(int parent, const std::string& name);
/// The whole file; nothing when there is none, EBADMSG when it is longer than one of ours can be.
std::optional<std::string> read_file(int parent, const std::string& name, uint64_t longest);
enum class durability { none, synced };
/// Puts a whole file in the place of what was there, at once. The caller holds the directory's
/// exclusive lock.
void replace_file(int parent, const std::string& name, std::string_view content, durability wanted);
/// The same for a file of another directory of the file system; `fresh` is its name in `parent`
/// until it is whole.
void place_file(int parent, const std::string& fresh, int directory, const std::string& name,
                std::string_view content, durability wanted);
/// Waits until the file, or the names in the directory, are on the disk.
void sync_file(int file);
/// Locks an open file for as long as it is open; false when another opening has it locked.
bool try_lock_file(int file);

// --- transfers

/// Moves `length` bytes at `position` of the file and stores how many went in `*moved`, whatever
/// the status; fewer than asked for with status 0 is the end of the file.
int read_at(int file, void* buffer, uint64_t length, uint64_t position, uint64_t* moved);
int write_at(int file, const void* buffer, uint64_t length, uint64_t position, uint64_t* moved);
/// Copies up to `length` bytes from one file to another; the count is less at the end of `from`.
uint64_t copy_bytes(int from, uint64_t from_position, int to, uint64_t to_position,
                    uint64_t length);

} // namespace disk
