// The secret that object keys are made with. It is kept in a file that only the service reads, so
// that the references that clients have go on working with a service that is started anew.
#pragma once

#include "service/state_directory.h"

#include <array>

using key_secret = std::array<unsigned char, 32>;

/// A secret that nobody has had before. Throws std::system_error when the kernel gives none.
key_secret new_secret();

/// The secret of the file "secret" in `directory`, which is made when it isn't there. Services that
/// make it at once get the same one. Throws state_error, and then changes nothing of what is there,
/// when it can't be kept or read, when others could have read or replaced it, and when the file
/// isn't what was once written.
key_secret kept_secret(const state_directory& directory);
