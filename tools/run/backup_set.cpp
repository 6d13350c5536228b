#include "tools/run/backup_set.h"

#include "tools/host/status_names.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <optional>
#include <set>
#include <string_view>

namespace {

constexpr size_t most_missing = 64; // named, of a backup: no more streams are made

/// An image's name taken apart.
struct image_part {
    std::string backup;
    size_t number; ///< from 1
    size_t count;
};

std::optional<size_t> whole_number(std::string_view text) {
    size_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0) {
        return {};
    }
    return number;
}

std::optional<image_part> part_of(std::string_view image) {
    const size_t dot = image.rfind('.');
    const size_t of = image.rfind("of");
    if (dot == std::string_view::npos || of == std::string_view::npos || of < dot || dot == 0) {
        return {};
    }
    const auto number = whole_number(image.substr(dot + 1, of - dot - 1));
    const auto count = whole_number(image.substr(of + 2));
    if (!number || !count || *number > *count) {
        return {};
    }
    return image_part{std::string(image.substr(0, dot)), *number, *count};
}

failure no_such_backup(const std::vector<listed_image>& images, const std::string& lsu,
                       const std::string& backup) {
    std::set<std::string> names;
    for (const listed_image& image : images) {
        names.insert(printable(backup_of(image.name)));
    }
    names.erase("");
    return failure(fmt::format("there is no backup \"{}\" in the LSU \"{}\"{}", backup, lsu,
                               names.empty() ? ", and no other either"
                                             : fmt::format("; it has {}", fmt::join(names, ", "))));
}

} // namespace

std::string stream_image(const std::string& backup, size_t index, size_t count) {
    return fmt::format("{}.{}of{}", backup, index + 1, count);
}

std::string backup_of(const std::string& image) {
    const auto part = part_of(image);
    return part ? part->backup : "";
}

found_backup find_backup(const std::vector<listed_image>& images, const std::string& lsu,
                         const std::string& backup) {
    std::vector<std::pair<image_part, listed_image>> found;
    for (const listed_image& image : images) {
        const auto part = part_of(image.name);
        if (part && part->backup == backup) {
            found.emplace_back(*part, image);
        }
    }
    if (found.empty()) {
        throw no_such_backup(images, lsu, backup);
    }
    const size_t count = found.front().first.count;
    std::sort(found.begin(), found.end(), [](const auto& left, const auto& right) {
        return left.first.number < right.first.number;
    });
    found_backup set;
    for (const auto& [part, image] : found) {
        if (part.count != count) {
            throw failure(fmt::format("the backup \"{}\" is there twice, in {} and in {} streams",
                                      backup, std::min(count, part.count),
                                      std::max(count, part.count)));
        }
        set.images.push_back(image);
    }
    size_t next = 0;
    for (size_t index = 0; index < count && set.missing.size() < most_missing; ++index) {
        if (next < found.size() && found[next].first.number == index + 1) {
            ++next;
        } else {
            set.missing.push_back(stream_image(backup, index, count));
        }
    }
    return set;
}

image_set::~image_set() {
    if (run_.is_barred()) {
        for (std::optional<host_image>& image : images_) {
            if (image) {
                image->let_go();
            }
        }
    }
}

void image_set::open(
    const host_server& server, const std::string& lsu, const std::vector<listed_image>& set,
    const std::function<void(const std::string& image, const std::string& reason)>& lost) {
    for (size_t index = 0; index < set.size(); ++index) {
        run_.on_account(index, [&] {
            try {
                add(server.open_image(lsu, set[index].name));
            } catch (const status_failure& failed) {
                const int error = sts_errno_of_status(failed.status);
                if (error != EBADMSG && error != ENOENT && error != EIO) {
                    throw;
                }
                lost(set[index].name, failed.what());
                images_.emplace_back();
            }
        });
    }
}

void image_set::close() {
    for (; closed_ < images_.size(); ++closed_) {
        run_.check_may_move();
        if (images_[closed_]) {
            run_.on_account(closed_, [&] { images_[closed_]->close(STS_CLOSE_COMPLETE); });
        }
    }
}
