#include "service/transport/request_assembly.h"

#include <algorithm>
#include <cstring>

namespace transport {

namespace {

constexpr size_t header_size = 12;
constexpr size_t id_size = 4; ///< before the data of a fragment, and first in what is fragmented
constexpr uint8_t little_endian_flag = 1;
constexpr uint8_t more_fragments_flag = 2;
constexpr uint64_t only_one = uint64_t{1} << 32; ///< stands for the id that GIOP 1.1 doesn't have
constexpr size_t kept_capacity = 4096;           ///< of a connection that is idle

enum type : uint8_t {
    request = 0,
    cancel_request = 2,
    locate_request = 3,
    close_connection = 5,
    message_error_type = 6,
    fragment = 7
};

uint32_t number_at(const char* at, bool is_little_endian) {
    uint32_t value = 0;
    for (size_t each = 0; each < sizeof value; ++each) {
        const size_t place = is_little_endian ? sizeof value - 1 - each : each;
        value = value << 8 | static_cast<uint8_t>(at[place]);
    }
    return value;
}

void put_number(char* at, uint32_t value, bool is_little_endian) {
    for (size_t each = 0; each < sizeof value; ++each) {
        const size_t place = is_little_endian ? each : sizeof value - 1 - each;
        at[place] = static_cast<char>(value >> 8 * each);
    }
}

} // namespace

struct request_assembly::header {
    uint8_t minor;
    uint8_t flags;
    uint8_t type;
    size_t size; ///< with the header
    uint64_t id; ///< of the request; only for what has one, once all bytes are there

    bool is_little_endian() const { return (flags & little_endian_flag) != 0; }
    bool has_more() const { return (flags & more_fragments_flag) != 0; }

    explicit header(const char* bytes)
        : minor(static_cast<uint8_t>(bytes[5])), flags(static_cast<uint8_t>(bytes[6])),
          type(static_cast<uint8_t>(bytes[7])),
          size(header_size + number_at(bytes + 8, is_little_endian())), id(only_one) {}

    /// Whether a client may send that.
    bool is_allowed() const {
        const uint8_t known_flags =
            minor == 0 ? little_endian_flag : little_endian_flag | more_fragments_flag;
        if (minor > 2 || (flags & ~known_flags) != 0) {
            return false;
        }
        switch (type) {
        case request:
            return true;
        case locate_request:
            return !has_more() || minor == 2;
        case fragment:
            return minor >= 1;
        case cancel_request:
        case close_connection:
        case message_error_type:
            return !has_more();
        default:
            return false;
        }
    }

    bool has_id() const {
        return type == cancel_request ||
               (minor == 2 && (type == fragment || (has_more() && type != fragment)));
    }
};

request_assembly::state request_assembly::look(clock::time_point now) {
    if (end_ == 0 && last_ != state::refused && last_ != state::closed) {
        last_ = judge(now);
    }
    return last_;
}

request_assembly::state request_assembly::judge(clock::time_point now) {
    constexpr char start[] = {'G', 'I', 'O', 'P', 1};
    for (;;) {
        if (available() == 0) {
            first_byte_.reset();
            return state::incomplete;
        }
        first_byte_ = first_byte_.value_or(now);
        if (memcmp(first(), start, std::min(available(), sizeof start)) != 0) {
            return state::refused;
        }
        if (available() < header_size) {
            return state::incomplete;
        }
        header head(first());
        const size_t bound =
            head.type == fragment ? longest_ - std::min(longest_, gathered_size()) : longest_;
        if (!head.is_allowed() || head.size > bound ||
            (head.type == fragment && gatherings_.empty())) {
            return state::refused;
        }
        if (available() < head.size) {
            return state::incomplete;
        }
        if (head.has_id()) {
            if (head.size < header_size + id_size) {
                return state::refused;
            }
            head.id = number_at(first() + header_size, head.is_little_endian());
        }
        const state result = sort_in(head, now);
        if (result != state::incomplete) {
            return result;
        }
    }
}

/// Does with the first message what its type asks for. incomplete: on to the next one.
request_assembly::state request_assembly::sort_in(const header& head, clock::time_point now) {
    // Only fragments of other requests may come between the fragments of one, and in GIOP 1.1 none.
    const bool is_between = gatherings_.count(only_one) != 0;
    switch (head.type) {
    case request:
    case locate_request:
        if (is_between) {
            return state::refused;
        }
        if (head.has_more()) {
            return begin_gathering(head, now);
        }
        next_ = start_;
        end_ = start_ + head.size;
        return state::whole;
    case fragment:
        return add_fragment(head);
    case cancel_request:
        // One that is being answered isn't stopped by it, nor need it be.
        gatherings_.erase(is_between ? only_one : head.id);
        drop_first(head.size);
        return state::incomplete;
    default:
        return state::closed;
    }
}

request_assembly::state request_assembly::begin_gathering(const header& head,
                                                          clock::time_point now) {
    // Data are aligned by their place in the whole, so cuts are at multiples of 8.
    if ((head.minor == 2 && head.size % 8 != 0) || gatherings_.size() >= most_interleaved ||
        gathered_size() + head.size > longest_) {
        return state::refused;
    }
    const auto [place, is_new] = gatherings_.try_emplace(head.id);
    if (!is_new) {
        return state::refused;
    }
    place->second = {std::string(first(), head.size), first_byte_.value_or(now)};
    drop_first(head.size);
    return state::incomplete;
}

request_assembly::state request_assembly::add_fragment(const header& head) {
    const auto found = gatherings_.find(head.id);
    if (found == gatherings_.end()) {
        return state::refused;
    }
    std::string& bytes = found->second.bytes;
    if (bytes[5] != first()[5] || ((bytes[6] ^ first()[6]) & little_endian_flag) != 0 ||
        (head.minor == 2 && head.has_more() && head.size % 8 != 0)) {
        return state::refused;
    }
    const size_t skipped = head.minor == 2 ? header_size + id_size : 0;
    bytes.append(first() + skipped, head.size - skipped);
    drop_first(head.size);
    if (head.has_more()) {
        return state::incomplete;
    }
    if (head.minor == 2) {
        bytes[6] = static_cast<char>(bytes[6] & ~more_fragments_flag);
        put_number(&bytes[8], static_cast<uint32_t>(bytes.size() - header_size),
                   head.is_little_endian());
    }
    assembled_ = std::move(bytes);
    gatherings_.erase(found);
    next_ = 0;
    end_ = assembled_.size();
    return state::whole;
}

void request_assembly::drop_first(size_t count) {
    start_ += count;
    first_byte_.reset();
    if (start_ == received_.size()) {
        received_.clear();
        start_ = 0;
        if (received_.capacity() > kept_capacity) {
            received_.shrink_to_fit();
        }
    }
}

size_t request_assembly::take(void* to, size_t size) {
    if (end_ == 0) {
        return 0;
    }
    const bool is_assembled = !assembled_.empty();
    const std::string& from = is_assembled ? assembled_ : received_;
    // Of GIOP 1.1 there may be several messages, of which the reader gets one after the other.
    size_t end = end_;
    if (is_assembled) {
        for (end = 0; end <= next_;) {
            end += header(from.data() + end).size;
        }
    }
    const size_t count = std::min(size, end - next_);
    memcpy(to, from.data() + next_, count);
    next_ += count;
    if (next_ == end_) {
        if (is_assembled) {
            assembled_ = std::string();
        } else {
            drop_first(end_ - start_);
        }
        end_ = 0;
        last_ = state::incomplete;
    }
    return count;
}

std::optional<clock::time_point> request_assembly::begun() const {
    std::optional<clock::time_point> earliest = first_byte_;
    if (end_ != 0 && assembled_.empty()) {
        earliest.reset(); // that message is whole
    }
    for (const auto& [id, each] : gatherings_) {
        earliest = std::min(earliest.value_or(each.begun), each.begun);
    }
    return earliest;
}

size_t request_assembly::gathered_size() const {
    size_t sum = 0;
    for (const auto& [id, each] : gatherings_) {
        sum += each.bytes.size();
    }
    return sum;
}

size_t request_assembly::held() const {
    return received_.size() + gathered_size() + assembled_.size();
}

} // namespace transport
