#include "tools/run/files/made_directories.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>

namespace {

constexpr unsigned place_bits = 48;
constexpr uint64_t place_mask = (uint64_t{1} << place_bits) - 1;
constexpr uint64_t deepest = 0xffff; // more than a path has names

uint64_t depth_of(const std::string& path) {
    return path.empty() ? 0 : 1 + static_cast<uint64_t>(std::count(path.begin(), path.end(), '/'));
}

void put_attributes(std::string& packed, const attributes& wanted) {
    put_number(packed, wanted.user);
    put_number(packed, wanted.group);
    put_number(packed, wanted.mode);
    for (const timespec& time : wanted.times) {
        put_number(packed, static_cast<uint64_t>(time.tv_sec));
        put_number(packed, static_cast<uint64_t>(time.tv_nsec));
    }
    put_number(packed, wanted.named.size());
    for (const auto& [name, value] : wanted.named) {
        put_text(packed, name);
        put_text(packed, value);
    }
}

attributes take_attributes(scratch_reader& from) {
    attributes wanted;
    wanted.user = static_cast<uid_t>(from.number());
    wanted.group = static_cast<gid_t>(from.number());
    wanted.mode = static_cast<mode_t>(from.number());
    for (timespec& time : wanted.times) {
        time.tv_sec = static_cast<time_t>(from.number());
        time.tv_nsec = static_cast<long>(from.number());
    }
    wanted.named.resize(from.number());
    for (auto& [name, value] : wanted.named) {
        name = from.text();
        value = from.text();
    }
    return wanted;
}

} // namespace

void made_directories::note(const std::string& path, const struct stat& made,
                            const attributes& wanted) {
    std::string packed;
    put_text(packed, path);
    put_number(packed, made.st_dev);
    put_number(packed, made.st_ino);
    put_attributes(packed, wanted);
    const std::lock_guard<std::mutex> lock(mutex_);
    places_.push_back((deepest - depth_of(path)) << place_bits | noted_.size());
    noted_.append(packed);
}

void made_directories::finish(const beneath& below, file_problems& problems) {
    std::sort(places_.begin(), places_.end());
    for (const uint64_t place : places_) {
        scratch_reader noted(noted_, place & place_mask);
        const std::string path = noted.text();
        const dev_t device = noted.number();
        const ino_t inode = noted.number();
        const std::string shown = path.empty() ? "." : path;
        const descriptor opened = below.open_directory(path, O_RDONLY);
        struct stat now = {};
        if (!opened.is_open() || fstat(opened.get(), &now) != 0) {
            problems.report(shown, fmt::format("its attributes can't be set: {}", strerror(errno)));
        } else if (now.st_dev != device || now.st_ino != inode) {
            problems.report(shown, "somebody has put another directory in its place");
        } else if (const std::string trouble = set_attributes(opened.get(), take_attributes(noted));
                   !trouble.empty()) {
            problems.report(shown, trouble);
        }
    }
}
