// An image read through its seal: what comes out is a whole archive, whatever has become of the
// image. An entry whose header is damaged is left out of it; damaged content is given as it is,
// with zeros for what is missing, and the entry that it belongs to is told.
#pragma once

#include "tools/run/archive/image_seal.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class checked_image {
  public:
    /// `read` fills a buffer from a position of the image: the bytes it has read, 0 at the image's
    /// end. It is asked for `block` bytes at once.
    using reader = std::function<uint64_t(char* buffer, uint64_t length, uint64_t position)>;
    checked_image(image_seal seal, uint64_t block, reader read);

    const std::string& image() const { return seal_.image(); } ///< as it was written
    uint64_t length() const { return seal_.length(); }
    /// Entries of the archive as it is given.
    uint64_t entries_left() const { return seal_.entries() - lost_entries_; }

    /// The next bytes of the archive, valid until the next call; empty at its end.
    std::string_view next();
    /// Where in the image the content is damaged of entries whose headers stood at most
    /// `position` bytes into the archive as it was given; each place is told once. Empty: nowhere.
    std::string take_damage(uint64_t position);
    /// Reads what is left and says what is wrong with the image; empty when nothing is.
    std::vector<std::string> finish();

  private:
    struct damaged_content {
        uint64_t header; ///< of its entry, in the archive as it was given
        uint64_t from;   ///< in the image
        uint64_t to;
    };

    size_t available() const { return end_ - begin_; }
    void fill(uint64_t wanted);
    void advance();
    void skip();
    bool is_good(const char* bytes) const;
    void note(uint64_t from, uint64_t to, bool is_header);

    image_seal seal_;
    const uint64_t block_;
    const reader read_;
    std::vector<char> buffer_; ///< what is read and not given yet is from `begin_` to `end_`
    size_t begin_ = 0;
    size_t end_ = 0;
    size_t given_ = 0; ///< bytes of the last answer
    bool is_at_end_ = false;
    uint64_t read_bytes_ = 0;
    running_hash whole_;

    std::optional<image_piece> piece_; ///< the next one
    uint64_t position_ = 0;            ///< in the image, where it begins
    uint64_t given_bytes_ = 0;         ///< of the archive so far
    uint64_t header_ = 0;              ///< of the current entry, in the archive
    bool is_skipping_ = false;

    std::deque<damaged_content> damaged_;
    std::vector<std::string> places_; ///< the first of them, in words
    uint64_t place_count_ = 0;
    uint64_t lost_entries_ = 0;
};
