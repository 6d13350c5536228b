// Files that people hand to the tool.
#pragma once

#include <string>

/// The file's whole content. Throws a failure that names the file and says why it can't be read.
std::string read_file(const std::string& path);
