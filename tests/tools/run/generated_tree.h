// A tree with what makes trees hard: odd names, odd files, odd modes.
#pragma once

#include <filesystem>
#include <string>

/// Makes it in `root`, which isn't there yet: some 11 MB in about 40 files.
void make_tree(const std::filesystem::path& root);

enum class compared_times { to_the_second, to_the_nanosecond };

/// The first difference between two trees in types, modes, times, owners, contents, link targets
/// and which names are one file; empty when there is none. Their tops' own names don't count.
std::string tree_difference(const std::filesystem::path& left, const std::filesystem::path& right,
                            compared_times times = compared_times::to_the_second);
