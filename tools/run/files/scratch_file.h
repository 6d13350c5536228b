// What a run notes and reads again later, however much it is: a file without a name takes it once
// it is more than a little. It is made in $TMPDIR, or /var/tmp, and is gone with its owner.
#pragma once

#include "common/descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>

class scratch_file {
  public:
    /// Fails when the disk takes no more.
    void append(const std::string& bytes);
    uint64_t size() const { return in_file_ + tail_.size(); }
    /// Bytes read, fewer than `length` only at the end. Several threads may read while none
    /// appends.
    size_t read(char* buffer, size_t length, uint64_t position) const;

  private:
    void write_tail();

    descriptor file_; ///< not open: all is in `tail_`
    uint64_t in_file_ = 0;
    std::string tail_;
};

/// Appends a number of 64 bits; small ones are short.
void put_number(std::string& bytes, uint64_t number);
/// Appends a text with its length.
void put_text(std::string& bytes, const std::string& text);

/// Reads a scratch file's numbers and texts in order. Behind the end numbers are 0, texts empty.
class scratch_reader {
  public:
    explicit scratch_reader(const scratch_file& file, uint64_t position = 0)
        : file_(file), position_(position) {}

    bool is_at_end() const { return position() >= file_.size(); }
    uint64_t position() const { return position_ + next_; }
    uint64_t number();
    std::string text();
    /// Appends `length` bytes to `text`.
    void add_bytes(std::string& text, size_t length);

  private:
    bool fill();

    const scratch_file& file_;
    uint64_t position_; ///< of the buffer
    std::string buffer_;
    size_t next_ = 0; ///< in it
};
