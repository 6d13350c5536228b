// What a client sends, put together: bytes go in as they come, whole GIOP messages come out.
//
// A request that comes in fragments comes out as one message (GIOP 1.2), or with all its fragments
// behind it (GIOP 1.1, where what is aligned how depends on the cuts). So whoever reads a message
// has all of it at once, and nothing of a client that leaves in between.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace transport {

using clock = std::chrono::steady_clock;

class request_assembly {
  public:
    /// `longest`: bytes of a message, its header included; also of all the requests together whose
    /// fragments are still coming.
    explicit request_assembly(size_t longest) : longest_(longest) {}

    enum class state {
        incomplete, ///< more bytes are needed
        whole,      ///< a message can be taken
        refused,    ///< what came is no message; the answer to it is a MessageError
        closed      ///< the client says that it is done
    };

    void append(const char* bytes, size_t count) { received_.append(bytes, count); }
    /// What the bytes so far come to. After refused or closed it stays at that.
    state look(clock::time_point now);
    /// Copies from the message that is whole, up to `size` bytes and up to the end of a GIOP
    /// message; the number of bytes. 0 when none is whole.
    size_t take(void* to, size_t size);

    /// Since when there is a message that isn't whole yet: the time of the earliest one's first
    /// byte.
    std::optional<clock::time_point> begun() const;
    size_t held() const; ///< bytes in memory

    static constexpr size_t most_interleaved = 16; ///< requests whose fragments are coming

  private:
    struct gathered {
        std::string bytes;
        clock::time_point begun;
    };
    struct header;
    using gatherings = std::map<uint64_t, gathered>;

    state judge(clock::time_point now);
    state sort_in(const header& head, clock::time_point now);
    state begin_gathering(const header& head, clock::time_point now);
    state add_fragment(const header& head);
    state hand_out(std::string&& message);
    void drop_first(size_t count);
    size_t gathered_size() const;
    const char* first() const { return received_.data() + start_; }
    size_t available() const { return received_.size() - start_; }

    size_t longest_;
    std::string received_;
    size_t start_ = 0; ///< of what isn't dealt with, in `received_`
    gatherings gatherings_;
    std::optional<clock::time_point> first_byte_; ///< of the message that `received_` begins with
    state last_ = state::incomplete;
    std::string assembled_; ///< the whole message, if it came in fragments
    size_t next_ = 0;       ///< to be taken, in `assembled_` or `received_`
    size_t end_ = 0;        ///< of the whole message, there; 0: there is none
};

/// A MessageError, in the highest version that is understood.
constexpr char message_error[] = {'G', 'I', 'O', 'P', 1, 2, 1, 6, 0, 0, 0, 0};

} // namespace transport
