// The directory of what outlasts the service: files that nobody else may write or read, each read
// with a bound and written whole.
#pragma once

#include "common/descriptor.h"

#include <optional>
#include <stdexcept>
#include <string>

/// Why something can't be kept, or what is kept can't be relied on. Names the file or directory.
struct state_error : std::runtime_error {
    using runtime_error::runtime_error;
};

/// Where the service keeps what outlasts it, unless it is told: the environment's STATE_DIRECTORY
/// (of several, with colons between, the first), for root /var/lib/vlsld, else
/// $XDG_STATE_HOME/vlsld, else ~/.local/state/vlsld. Empty when the environment names none.
std::string default_state_directory();

class state_directory {
  public:
    /// Makes it where it isn't there. Throws state_error when it can't be had, or others may write
    /// there.
    explicit state_directory(const std::string& path);

    std::string path_of(const std::string& name) const { return path_ + "/" + name; }

    /// The first `most` bytes of a file; none: it isn't there. Throws state_error when it can't be
    /// read, and when others could have read or replaced it.
    std::optional<std::string> read(const std::string& name, size_t most) const;

    /// Writes a file whole, in place of one that is there, or not at all. Throws state_error.
    void write(const std::string& name, const std::string& text) const;
    /// The same, unless there is one.
    void write_first(const std::string& name, const std::string& text) const;
    /// Gives a file another name, if it is there.
    void rename(const std::string& name, const std::string& other) const;

  private:
    template <typename Place>
    void write_draft(const std::string& name, const std::string& text, Place place) const;

    std::string path_;
    descriptor opened_;
};
