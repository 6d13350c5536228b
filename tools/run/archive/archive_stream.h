// An archive stream on an image: libarchive makes it (ustar, and pax where that can't hold what
// there is), it is written in blocks at increasing positions, and read back the same way. Both sides stop when the run is to stop. What is written is sealed
// (image_seal.h), and what is read is checked against its seal.
#pragma once

#include "tools/run/archive/checked_image.h"
#include "tools/run/archive/image_seal.h"
#include "tools/terminal/failure.h"

#include "tools/host/plugin_host.h"
#include "tools/run/streams/transfer.h"

#include <archive.h>
#include <archive_entry.h>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct release_archive {
    void operator()(archive* handle) const { archive_free(handle); }
};
using archive_ptr = std::unique_ptr<archive, release_archive>;

struct release_entry {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using entry_ptr = std::unique_ptr<archive_entry, release_entry>;

/// The archive in an image can't be read on.
struct archive_damage : failure {
    using failure::failure;
};

/// The last message of a handle.
std::string archive_text(archive* handle);

/// An entry's name as people write it: a directory's without the "/" at its end.
std::string name_of(archive_entry* entry);

/// How much of a time an archive keeps. A fraction of a second takes an extended header of 1 KiB;
/// without it only what no plain header holds has one, and that keeps the fraction, too.
enum class kept_times { seconds, fractions };

/// Writes one image.
class archive_writer {
  public:
    /// `block` in bytes, at most 1 GiB.
    archive_writer(host_image& image, stream& account, const transfer& run, uint64_t block,
                   kept_times times);
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
    /// Ends the archive and writes its seal. Without it the image is no whole one. Empty, or why
    /// the image has no seal.
    std::string finish();

  private:
    static la_ssize_t take(archive* handle, void* self, const void* buffer, size_t length);
    archive_ptr new_archive(int (*set_format)(archive*));
    void gather(const char* bytes, size_t length);
    void write_block();
    void write_seal(const std::string& bytes);
    bool is_plain(archive_entry* entry) const;
    int write_header(archive_entry* entry);
    void require(bool good);

    host_image& image_;
    stream& account_;
    const transfer& run_;
    const kept_times times_;
    std::vector<char> block_; ///< what is to be written next
    size_t block_length_ = 0;
    uint64_t position_ = 0; ///< in the image, where that will stand
    seal_maker seal_;
    uint64_t seal_length_ = 0;
    int seal_status_ = 0; ///< of the first write of it that failed
    bool is_over_ = false;
    std::exception_ptr thrown_; ///< by the callback, which can't throw
    archive_ptr plain_;         ///< last: their ends call back
    archive_ptr extended_;
    archive* current_ = nullptr; ///< the one that has the current entry
};

/// Reads one image. What is damaged of a sealed one costs the entries that it hits and no others.
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
    /// Says what of the entry's content, which is read by now, isn't what was backed up; empty: all
    /// of it is.
    std::string damage_of_entry();
    /// Reads the image to its end and says what is wrong with it.
    std::vector<std::string> finish();
    /// Whether damage can be told at all.
    bool is_sealed() const { return checked_.has_value() || is_seal_broken_; }

  private:
    static la_ssize_t read_block(archive* handle, void* self, const void** buffer);
    void open_seal();
    std::string_view read_on();
    uint64_t read(char* buffer, uint64_t length, uint64_t position);
    std::vector<std::string> look_behind_the_end();
    [[noreturn]] void fail();

    host_image& image_;
    stream& account_;
    const transfer& run_;
    std::optional<checked_image> checked_; ///< none: the image has no seal
    bool is_seal_broken_ = false;
    uint64_t entries_ = 0;

    uint64_t position_ = 0; ///< of what is read next, where there is no seal
    std::vector<char> block_;
    size_t block_length_ = 0;

    std::exception_ptr thrown_;
    archive_ptr archive_;
};
