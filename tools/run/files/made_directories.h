// Directories that a restore has made, noted until all streams are done: what is inside a directory
// may change its times, and its own mode may close it.
#pragma once

#include "tools/run/files/attributes.h"
#include "tools/run/files/beneath.h"
#include "tools/run/files/problems.h"
#include "tools/run/files/scratch_file.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <vector>

class made_directories {
  public:
    /// Notes one by its path below the target (empty: the target), what it is, and what it is to
    /// be. May be called by several threads.
    void note(const std::string& path, const struct stat& made, const attributes& wanted);
    /// Gives all of them their attributes, what is inside before what is around it, and of those
    /// that were named more than once the last ones.
    void finish(const beneath& below, file_problems& problems);

  private:
    std::mutex mutex_;
    scratch_file noted_;
    std::vector<uint64_t> places_; ///< in that file, the deepest directories to be sorted first
};
