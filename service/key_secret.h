// The secret that object keys are made with. It is kept in a file that only the service reads, so
// that the references that clients have go on working with a service that is started anew.
#pragma once

#include <array>
#include <stdexcept>
#include <string>

using key_secret = std::array<unsigned char, 32>;

/// Why the secret can't be kept, or what is kept can't be relied on. Names the file or directory.
struct state_error : std::runtime_error {
    using runtime_error::runtime_error;
};

/// Where the service keeps what outlasts it, unless it is told: the environment's STATE_DIRECTORY
/// (of several, with colons between, the first), for root /var/lib/vlsld, else
/// $XDG_STATE_HOME/vlsld, else ~/.local/state/vlsld. Empty when the environment names none.
std::string default_state_directory();

/// A secret that nobody has had before. Throws std::system_error when the kernel gives none.
key_secret new_secret();

/// The secret of the file "secret" in `directory`; both are made when they aren't there. Services
/// that make it at once get the same one. Throws state_error, and then changes nothing of what is
/// there, when it can't be kept or read, when others could have read or replaced it, and when the
/// file isn't what was once written.
key_secret kept_secret(const std::string& directory);
