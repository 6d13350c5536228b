// Files that figures and pictures are written to.
#pragma once

#include "common/descriptor.h"

#include <string>

/// What stands for standard output in place of a file's name.
constexpr const char* standard_output = "-";

/// A file that is written once, at the end. It is opened at the beginning, so that a run of hours
/// doesn't end with figures that can't be kept, and stays open: the reader of a FIFO sees one
/// beginning and one end. Until it is written it holds what it held.
class output_file {
  public:
    /// An empty path is no file. For "-" standard output is kept free: whatever else is printed from
    /// now on goes to standard error. Fails when it can't be opened; waits for the reader of a FIFO.
    explicit output_file(std::string path);

    /// Puts `text` in the place of what it holds.
    void write(const std::string& text);

  private:
    [[noreturn]] void fail() const;

    const std::string path_;
    descriptor file_;
};

/// Whether both paths lead to one file, or would if it were there.
bool is_same_file(const std::string& left, const std::string& right);

/// Replaces the file's content. An empty path is no file.
void write_file(const std::string& path, const std::string& text);
