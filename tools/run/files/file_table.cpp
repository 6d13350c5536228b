#include "tools/run/files/file_table.h"

#include "tools/terminal/failure.h"

#include <algorithm>
#include <xxhash.h>

namespace {

constexpr size_t first_files = 1024; // a power of two
constexpr unsigned value_bits = 48;
constexpr uint64_t value_mask = (uint64_t{1} << value_bits) - 1;
constexpr size_t most_devices = 0xfffe;

} // namespace

file_table::file_table() : places_(first_files) {}

/// 1 for the first device that was added.
std::optional<uint64_t> file_table::number_of(dev_t device) const {
    const auto found = std::find(devices_.begin(), devices_.end(), device);
    return found != devices_.end()
               ? std::optional(static_cast<uint64_t>(found - devices_.begin()) + 1)
               : std::nullopt;
}

/// Where the file is, or else would be.
size_t file_table::place_of(uint64_t inode, uint64_t device) const {
    size_t at = XXH3_64bits_withSeed(&inode, sizeof inode, device) & (places_.size() - 1);
    while (places_[at].device_and_value != 0 &&
           (places_[at].inode != inode || places_[at].device_and_value >> value_bits != device)) {
        at = (at + 1) & (places_.size() - 1);
    }
    return at;
}

std::optional<uint64_t> file_table::find(dev_t device, ino_t inode) const {
    const std::optional<uint64_t> number = number_of(device);
    if (!number) {
        return {};
    }
    const place& found = places_[place_of(inode, *number)];
    return found.device_and_value != 0 ? std::optional(found.device_and_value & value_mask)
                                       : std::nullopt;
}

void file_table::add(dev_t device, ino_t inode, uint64_t value) {
    std::optional<uint64_t> number = number_of(device);
    if (!number) {
        if (devices_.size() == most_devices) {
            throw failure("the trees are on more file systems than can be kept apart");
        }
        devices_.push_back(device);
        number = devices_.size();
    }
    places_[place_of(inode, *number)] = {inode, *number << value_bits | value};
    if (++taken_ > places_.size() / 4 * 3) {
        grow();
    }
}

void file_table::grow() {
    std::vector<place> before(places_.size() * 2);
    before.swap(places_);
    for (const place& each : before) {
        if (each.device_and_value != 0) {
            places_[place_of(each.inode, each.device_and_value >> value_bits)] = each;
        }
    }
}
