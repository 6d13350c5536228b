#include "tools/run/archive/image_seal.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <endian.h>
#include <new>
#include <utility>

namespace {

constexpr char seal_magic[8] = {'T', 'H', 'R', 'S', 'E', 'A', 'L', '1'};
constexpr size_t kept_at_once = size_t{256} * 1024;
constexpr size_t read_at_once = size_t{256} * 1024;
constexpr size_t longest_name = 255;
constexpr unsigned kind_bits = 2;
constexpr unsigned kind_mask = 3;
constexpr unsigned group_bits = 7;
constexpr unsigned group_mask = 0x7f;
constexpr unsigned more_groups = 0x80;
constexpr unsigned longest_number = 5; // groups: 35 bits

/// The last bytes of a seal.
struct seal_end {
    uint64_t length;
    uint64_t entries;
    uint64_t name_length; ///< of the name before this record
    XXH128_canonical_t image_checksum;
    XXH128_canonical_t seal_checksum; ///< of all the seal before this field
    char magic[8];
};
static_assert(sizeof(seal_end) == 64);
constexpr size_t unchecked_end = sizeof(seal_end) - offsetof(seal_end, seal_checksum);

std::unique_ptr<XXH3_state_t, release_hash> new_state() {
    std::unique_ptr<XXH3_state_t, release_hash> state(XXH3_createState());
    if (state == nullptr) {
        throw std::bad_alloc();
    }
    return state;
}

} // namespace

uint32_t check_of(const void* bytes, size_t length) {
    return static_cast<uint32_t>(XXH3_64bits(bytes, length));
}

running_hash::running_hash() : state_(new_state()) { XXH3_128bits_reset(state_.get()); }

XXH128_canonical_t running_hash::value() const {
    XXH128_canonical_t bytes = {};
    XXH128_canonicalFromHash(&bytes, XXH3_128bits_digest(state_.get()));
    return bytes;
}

// --- making ------------------------------------------------------------------------------------

seal_maker::seal_maker(std::string image, keeper keep)
    : image_(std::move(image)), keep_(std::move(keep)), piece_(new_state()) {
    XXH3_64bits_reset(piece_.get());
}

void seal_maker::begin(piece_kind kind, uint64_t position) {
    beginnings_.emplace_back(position, kind);
}

void seal_maker::take(const void* bytes, size_t length) {
    whole_.add(bytes, length);
    const auto* from = static_cast<const char*>(bytes);
    while (length > 0) {
        while (!beginnings_.empty() && beginnings_.front().first <= position_) {
            end_piece();
            kind_ = beginnings_.front().second;
            beginnings_.pop_front();
        }
        const uint64_t room = (kind_ == piece_kind::header ? largest_header : largest_piece) -
                              (position_ - piece_start_);
        uint64_t part = std::min<uint64_t>(length, room);
        if (!beginnings_.empty()) {
            part = std::min(part, beginnings_.front().first - position_);
        }
        XXH3_64bits_update(piece_.get(), from, part);
        from += part;
        length -= part;
        position_ += part;
        if (part == room) {
            end_piece();
            kind_ = kind_ == piece_kind::header ? piece_kind::content : kind_;
        }
    }
}

void seal_maker::end_piece() {
    const uint64_t length = position_ - piece_start_;
    if (length == 0) {
        return;
    }
    uint64_t number = (length << kind_bits) | static_cast<unsigned>(kind_);
    for (; number > group_mask; number >>= group_bits) {
        kept_ += static_cast<char>((number & group_mask) | more_groups);
    }
    kept_ += static_cast<char>(number);
    const uint32_t check = htole32(static_cast<uint32_t>(XXH3_64bits_digest(piece_.get())));
    kept_.append(reinterpret_cast<const char*>(&check), sizeof check);
    XXH3_64bits_reset(piece_.get());
    entries_ += kind_ == piece_kind::header ? 1 : 0;
    piece_start_ = position_;
    keep(false);
}

void seal_maker::keep(bool all) {
    if (all || kept_.size() >= kept_at_once) {
        seal_.add(kept_.data(), kept_.size());
        keep_(kept_);
        kept_.clear();
    }
}

void seal_maker::finish() {
    end_piece();
    seal_end end = {};
    end.length = htole64(position_);
    end.entries = htole64(entries_);
    end.name_length = htole64(image_.size());
    end.image_checksum = whole_.value();
    kept_ += image_;
    kept_.append(reinterpret_cast<const char*>(&end), sizeof end - unchecked_end);
    keep(true);
    end.seal_checksum = seal_.value();
    memcpy(end.magic, seal_magic, sizeof seal_magic);
    keep_({reinterpret_cast<const char*>(&end) + sizeof end - unchecked_end, unchecked_end});
}

// --- reading -----------------------------------------------------------------------------------

std::optional<image_seal> image_seal::read(source from) {
    image_seal seal(std::move(from));
    return seal.has_whole_end() && seal.is_consistent() ? std::optional(std::move(seal))
                                                        : std::nullopt;
}

/// Its bytes from `place` on, some of them; empty at its end.
std::string_view image_seal::bytes_at(uint64_t place) {
    if (place < before_ || place >= before_ + bytes_.size()) {
        before_ = place;
        bytes_.resize(read_at_once);
        bytes_.resize(std::min<uint64_t>(from_(bytes_.data(), read_at_once, place), read_at_once));
    }
    return std::string_view(bytes_).substr(place - before_);
}

/// Reads all of it once and takes what its end says, where that is whole.
bool image_seal::has_whole_end() {
    running_hash checked;
    std::string last; // the end's record and the name before it among them
    uint64_t length = 0;
    for (std::string_view some = bytes_at(0); !some.empty(); some = bytes_at(length)) {
        length += some.size();
        last += some;
        const size_t before = last.size() - std::min(last.size(), sizeof(seal_end) + longest_name);
        checked.add(last.data(), before);
        last.erase(0, before);
        if (length > largest_seal) {
            return false;
        }
    }
    seal_end end = {};
    if (last.size() < sizeof end) {
        return false;
    }
    memcpy(&end, last.data() + last.size() - sizeof end, sizeof end);
    checked.add(last.data(), last.size() - unchecked_end);
    const XXH128_canonical_t checksum = checked.value();
    const uint64_t name_length = le64toh(end.name_length);
    if (memcmp(end.magic, seal_magic, sizeof seal_magic) != 0 ||
        memcmp(&checksum, &end.seal_checksum, sizeof checksum) != 0 ||
        name_length > std::min(longest_name, last.size() - sizeof end)) {
        return false;
    }
    image_ = last.substr(last.size() - sizeof end - name_length, name_length);
    pieces_end_ = length - sizeof end - name_length;
    length_ = le64toh(end.length);
    entries_ = le64toh(end.entries);
    checksum_ = end.image_checksum;
    return true;
}

/// Whether its pieces are what the image is said to have, as somebody may have made it up.
bool image_seal::is_consistent() {
    uint64_t length = 0;
    uint64_t entries = 0;
    while (const std::optional<image_piece> piece = next()) {
        length += piece->length;
        entries += piece->kind == piece_kind::header ? 1 : 0;
    }
    return std::exchange(place_, 0) == pieces_end_ && length == length_ && entries == entries_;
}

bool image_seal::fits(const running_hash& whole) const {
    const XXH128_canonical_t checksum = whole.value();
    return memcmp(&checksum, &checksum_, sizeof checksum) == 0;
}

std::optional<image_piece> image_seal::next() {
    uint32_t check = 0;
    std::array<char, longest_number + sizeof check> packed = {};
    size_t there = 0; // of what a piece may take
    while (there < packed.size() && place_ + there < pieces_end_) {
        const std::string_view some =
            bytes_at(place_ + there)
                .substr(0, std::min(packed.size() - there, pieces_end_ - place_ - there));
        if (some.empty()) {
            break;
        }
        there += some.copy(packed.data() + there, some.size());
    }
    size_t place = 0;
    uint64_t number = 0;
    bool is_whole = false;
    while (!is_whole && place < std::min<size_t>(there, longest_number)) {
        const auto byte = static_cast<unsigned char>(packed[place]);
        number |= uint64_t{byte & group_mask} << (group_bits * place++);
        is_whole = (byte & more_groups) == 0;
    }
    if (!is_whole || there - place < sizeof check) {
        return {};
    }
    memcpy(&check, packed.data() + place, sizeof check);
    image_piece piece;
    piece.kind = static_cast<piece_kind>(number & kind_mask);
    piece.length = number >> kind_bits;
    piece.check = le32toh(check);
    const uint64_t largest = piece.kind == piece_kind::header ? largest_header : largest_piece;
    if (piece.kind > piece_kind::end || piece.length == 0 || piece.length > largest) {
        return {};
    }
    place_ += place + sizeof check;
    return piece;
}
