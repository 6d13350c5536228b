// What the fuzzers share: the check of what must hold for any input, a file that is in memory
// alone, and a host session that looks at every message it gets.
#pragma once

#include "config/throttling_util.h"
#include "plugin/stsapi.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

/// Ends the process, which the fuzzer reports with the input, unless `holds`.
void require(bool holds, const char* what);

/// A file with a path and no disk. Its memory is the process's and is given back at the end.
class memory_file {
  public:
    memory_file();
    ~memory_file();
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;

    const std::string& path() const { return path_; }
    void write(const void* bytes, size_t size) const;
    void write(const std::string& text) const { write(text.data(), text.size()); }
    std::string read() const;

    /// Makes this file the one at a path of the configuration.
    void serve_as(char (&path)[4096]) const;

  private:
    int descriptor_;
    std::string path_;
};

/// A session that takes everything and requires of each message that it ends in time.
sts_session_def_v7_t watching_session();

/// The input as a text that ends, in memory of exactly its size, so that a look beyond it is seen.
std::unique_ptr<char[]> exact_text(const std::string& text);

/// The input up to its first zero byte.
std::string text_of(const uint8_t* data, size_t size);

/// Requires that every field of settings that were read holds a value that may be stored.
void require_acceptable(const throttling_config_s& config);

/// Whether two records hold the same settings, the port apart.
bool same_settings(const throttling_config_s& left, const throttling_config_s& right);
