// What this process has at the moment, for the tests that nothing is left behind.
#pragma once

#include <cstddef>
#include <filesystem>
#include <malloc.h>
#include <unistd.h>

inline size_t entries_of(const char* directory) {
    const std::filesystem::directory_iterator files(directory);
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

inline size_t threads() { return entries_of("/proc/self/task"); }
inline size_t descriptors() { return entries_of("/proc/self/fd"); }

/// Bytes of the heap that are in use.
inline size_t allocated() { return mallinfo2().uordblks; }

/// Whether `count` comes down to `expected`: a thread that was told to end takes its moment.
inline bool comes_down_to(size_t (*count)(), size_t expected) {
    for (int moment = 0; moment < 500 && count() > expected; ++moment) {
        usleep(10000);
    }
    return count() <= expected;
}

/// Whether what memory is measured is what the program took: a sanitizer keeps what is freed, notes
/// beside all, and takes many times as long for everything.
#ifdef IS_SANITIZED
constexpr bool has_memory_of_its_own = false;
#else
constexpr bool has_memory_of_its_own = true;
#endif

/// Seconds for what is promised within one. A sanitizer makes a program many times as slow, and all
/// that can be seen there is that it isn't for ever.
constexpr double at_once = has_memory_of_its_own ? 1 : 60;
