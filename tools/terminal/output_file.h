// Files that the tool writes for people and programs. What fails throws a failure that names the
// file.
#pragma once

#include <string>

/// So that a run of hours doesn't end with figures that can't be kept. An empty path is no file.
void require_writable(const std::string& path);

/// Whether both paths lead to one file, or would if it were there.
bool is_same_file(const std::string& left, const std::string& right);

/// Replaces the file's content. An empty path is no file.
void write_file(const std::string& path, const std::string& text);
