// The seal of an image: what finds damage to it, and where. It is kept as the image's metadata, and
// made while the image is written.
//
// An archive falls into pieces: the header of each entry, its content (in pieces of 256 KiB at
// most) and the archive's end. The seal has the length and a short check of each piece, which finds
// the place of damage, and for the whole image its name, its length, its entries and a checksum
// (XXH3, 128 bits), which misses none. All of it finds damage; it keeps out nobody who can write
// both, the image and its metadata.
//
//   for each piece    length * 4 + kind, in groups of 7 bits, the lowest first, with 0x80 on all
//   but
//                     the last; the lowest 32 bits of the piece's XXH3 of 64 bits
//   at the end        the name; then the record `seal_end`
//
// Numbers are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <xxhash.h>

constexpr uint64_t largest_piece = uint64_t{256} * 1024; ///< bytes, of content
constexpr uint64_t largest_header = uint64_t{16} << 20;  ///< bytes, as they are believed
constexpr uint64_t largest_seal = uint64_t{16} << 30;    ///< bytes: some billion entries

enum class piece_kind : uint8_t { content = 0, header = 1, end = 2 };

struct image_piece {
    piece_kind kind = piece_kind::content;
    uint64_t length = 0;
    uint32_t check = 0;
};

uint32_t check_of(const void* bytes, size_t length);

struct release_hash {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};

/// Takes a checksum of bytes that come in pieces.
class running_hash {
  public:
    running_hash();
    void add(const void* bytes, size_t length) { XXH3_128bits_update(state_.get(), bytes, length); }
    XXH128_canonical_t value() const;

  private:
    std::unique_ptr<XXH3_state_t, release_hash> state_;
};

/// Makes a seal from the bytes of an image as they are written.
class seal_maker {
  public:
    /// `keep` is given the seal, piece by piece.
    using keeper = std::function<void(const std::string& bytes)>;
    seal_maker(std::string image, keeper keep);

    /// A piece of that kind begins `position` bytes from the image's start, which is not before
    /// what was taken.
    void begin(piece_kind kind, uint64_t position);
    void take(const void* bytes, size_t length);
    void finish();

  private:
    void end_piece();
    void keep(bool all);

    const std::string image_;
    const keeper keep_;
    std::deque<std::pair<uint64_t, piece_kind>> beginnings_; ///< those still to come
    piece_kind kind_ = piece_kind::end;
    uint64_t piece_start_ = 0;
    uint64_t position_ = 0;
    uint64_t entries_ = 0;
    std::unique_ptr<XXH3_state_t, release_hash> piece_;
    running_hash whole_;
    running_hash seal_;
    std::string kept_; ///< not given away yet
};

/// A seal that is read again, a part of it at a time.
class image_seal {
  public:
    /// Reads from a place of the seal's bytes: how many it has read, 0 at the end.
    using source = std::function<uint64_t(char* buffer, uint64_t length, uint64_t position)>;
    /// None when those bytes are no whole seal.
    static std::optional<image_seal> read(source from);

    const std::string& image() const { return image_; } ///< the name it was written under
    uint64_t length() const { return length_; }
    uint64_t entries() const { return entries_; }
    bool fits(const running_hash& whole) const;
    /// The next piece; none at the end.
    std::optional<image_piece> next();

  private:
    explicit image_seal(source from) : from_(std::move(from)) {}
    bool has_whole_end();
    bool is_consistent();
    std::string_view bytes_at(uint64_t place);

    source from_;
    std::string bytes_;   ///< those that were read last
    uint64_t before_ = 0; ///< how many stand before them
    uint64_t pieces_end_ = 0;
    uint64_t place_ = 0;
    std::string image_;
    uint64_t length_ = 0;
    uint64_t entries_ = 0;
    XXH128_canonical_t checksum_ = {};
};
