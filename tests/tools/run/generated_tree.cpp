#include "tests/tools/run/generated_tree.h"

#include "tests/support/conf_dir.h"

#include <fcntl.h>
#include <map>
#include <random>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr size_t large_size = 5 * 1024 * 1024 + 13;
constexpr off_t sparse_size = 5 * 1024 * 1024;

std::string random_bytes(size_t size) {
    std::mt19937_64 numbers(7);
    std::string bytes(size, '\0');
    for (char& each : bytes) {
        each = static_cast<char>(numbers());
    }
    return bytes;
}

void write(const fs::path& path, const std::string& text) { conf_dir::write(path.string(), text); }

void make_odd_names(const fs::path& directory) {
    fs::create_directory(directory);
    const std::vector<std::string> names = {
        "with blank",   " leading",  "trailing ", "new\nline", "tab\there",
        "-dash",        "quote'\"",  "back\\",    "*?[x]",     "gr\xC3\xBC\xC3\x9F",
        "\xff\xfe\x80", "%s%n",      "...",       "a:b:c",     ".hidden",
        "CON",          "$(reboot)", "~",
    };
    for (const std::string& name : names) {
        write(directory / name, "content of " + name);
    }
    fs::create_directory(directory / "\xC3\xA9t\xC3\xA9 \xff");
    fs::create_symlink("tar\nget \xff", directory / "odd link");
}

void make_links(const fs::path& directory) {
    fs::create_directory(directory);
    write(directory / "one", "the same file");
    fs::create_hard_link(directory / "one", directory / "another");
    fs::create_hard_link(directory / "one", directory / "third");
    fs::create_symlink("one", directory / "relative");
    fs::create_symlink("/nowhere/at/all", directory / "dangling");
    fs::create_symlink("..", directory / "up");
}

void make_long_path(fs::path directory) {
    for (int level = 0; level < 10; ++level) {
        directory /= std::string(180, static_cast<char>('a' + level));
        fs::create_directory(directory);
    }
    write(directory / std::string(255, 'z'), "deep down");
}

void make_modes(const fs::path& directory) {
    fs::create_directory(directory);
    const std::vector<mode_t> modes = {0400, 0644, 0755, 0600, 04755, 02755, 0666};
    for (const mode_t mode : modes) {
        const fs::path path = directory / std::to_string(mode);
        write(path, "x");
        chmod(path.c_str(), mode);
    }
    mkfifo((directory / "pipe").c_str(), 0622);
    fs::create_directory(directory / "sticky");
    chmod((directory / "sticky").c_str(), 01777);
    fs::create_directory(directory / "closed");
    write(directory / "closed" / "inside", "behind a door");
    chmod((directory / "closed").c_str(), 0555);
}

void make_sparse(const fs::path& path) {
    const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    const std::string island = "an island";
    pwrite(file, island.data(), island.size(), sparse_size / 2);
    ftruncate(file, sparse_size);
    close(file);
}

/// Times that no clock of the test would give.
void set_times(const fs::path& root) {
    long count = 0;
    const auto set = [&](const fs::path& path) {
        const timespec times[2] = {{1, 0}, {1000000000 + ++count, 123456789}};
        utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
    };
    std::vector<fs::path> all;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        all.push_back(entry.path());
    }
    for (const fs::path& path : all) {
        set(path);
    }
    set(root);
}

/// What a file is, apart from where it is.
std::string description(const fs::path& path, compared_times times) {
    struct stat status = {};
    lstat(path.c_str(), &status);
    std::string text = std::to_string(status.st_mode) + " of " + std::to_string(status.st_uid) +
                       ":" + std::to_string(status.st_gid) + " at " +
                       std::to_string(status.st_mtim.tv_sec);
    if (times == compared_times::to_the_nanosecond) {
        text += "." + std::to_string(status.st_mtim.tv_nsec);
    }
    if (S_ISLNK(status.st_mode)) {
        text += " to " + fs::read_symlink(path).string();
    } else if (S_ISREG(status.st_mode)) {
        text += " links " + std::to_string(status.st_nlink) + " content " +
                conf_dir::read(path.string());
    }
    return text;
}

std::set<std::string> names_of(const fs::path& root) {
    std::set<std::string> names = {"."};
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        names.insert(entry.path().lexically_relative(root).string());
    }
    return names;
}

} // namespace

void make_tree(const fs::path& root) {
    fs::create_directory(root);
    fs::create_directory(root / "empty");
    write(root / "nothing in it", "");
    write(root / "large", random_bytes(large_size));
    make_sparse(root / "sparse");
    make_odd_names(root / "odd names");
    make_links(root / "links");
    make_modes(root / "modes");
    make_long_path(root);
    set_times(root);
}

std::string tree_difference(const fs::path& left, const fs::path& right, compared_times times) {
    const std::set<std::string> names = names_of(left);
    if (names != names_of(right)) {
        return "the names differ";
    }
    for (const std::string& name : names) {
        const std::string on_the_left = description(left / name, times);
        const std::string on_the_right = description(right / name, times);
        if (on_the_left != on_the_right) {
            return name + ": " + on_the_left.substr(0, 200) + " / " + on_the_right.substr(0, 200);
        }
    }
    return "";
}
