// An archive stream (pax) on an image: libarchive writes it in blocks at increasing positions, and
// reads it back the same way. Both sides stop when the run is to stop.
#pragma once

#include "tools/plugin_host.h"
#include "tools/transfer.h"

#include <archive.h>
#include <archive_entry.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct release_archive {
    void operator()(archive* handle) const { archive_free(handle); }
};
using archive_ptr = std::unique_ptr<archive, release_archive>;

struct release_entry {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using entry_ptr = std::unique_ptr<archive_entry, release_entry>;

/// The last message of a handle.
std::string archive_text(archive* handle);

/// An entry's name as people write it: a directory's without the "/" at its end.
std::string name_of(archive_entry* entry);

/// Writes one image.
class archive_writer {
  public:
    /// `block` in bytes, at most 1 GiB.
    archive_writer(host_image& image, stream& account, const transfer& run, uint64_t block);
    /// What isn't finished by now isn't written any more.
    ~archive_writer() { is_over_ = true; }
    archive_writer(const archive_writer&) = delete;
    archive_writer& operator=(const archive_writer&) = delete;

    /// Writes an entry's header. False, with the reason, when this entry can't be archived.
    bool header(archive_entry* entry, std::string& reason);
    /// Writes content of that entry.
    void data(const void* bytes, size_t length);
    /// Ends the entry; content that is missing is filled up with zeros.
    void finish_entry();
    /// Ends the archive. Without it the image is no whole one.
    void finish();

  private:
    static la_ssize_t write_block(archive* handle, void* self, const void* buffer, size_t length);
    uint64_t write(const void* buffer, size_t length);
    void require(bool good);

    host_image& image_;
    stream& account_;
    const transfer& run_;
    uint64_t position_ = 0;
    bool is_over_ = false;
    std::exception_ptr thrown_; ///< by the callback, which can't throw
    archive_ptr archive_;       ///< last: its end calls back
};

/// Reads one image.
class archive_reader {
  public:
    archive_reader(host_image& image, stream& account, const transfer& run, uint64_t block);
    archive_reader(const archive_reader&) = delete;
    archive_reader& operator=(const archive_reader&) = delete;

    /// The next entry, valid until the next call; null at the end. `warning` is empty unless
    /// something of the entry can't be kept.
    archive_entry* next(std::string& warning);
    /// The next piece of the entry's content and its place in the file; what lies between pieces is
    /// zeros. False at its end.
    bool data(const void*& bytes, size_t& length, int64_t& offset);

  private:
    static la_ssize_t read_block(archive* handle, void* self, const void** buffer);
    uint64_t read();
    [[noreturn]] void fail();

    host_image& image_;
    stream& account_;
    const transfer& run_;
    uint64_t position_ = 0;
    std::vector<char> block_;
    std::exception_ptr thrown_;
    archive_ptr archive_;
};
