#include "tools/run/files/claimed_names.h"

#include "tools/run/files/random_number.h"

#include <xxhash.h>

namespace {
constexpr size_t first_places = 1024; // a power of two
} // namespace

claimed_names::claimed_names() : key_(random_number()), places_(first_places) {}

uint64_t claimed_names::hash_of(const std::string& name) const {
    const uint64_t hash = XXH3_64bits_withSeed(name.data(), name.size(), key_);
    return hash != 0 ? hash : 1;
}

/// Where the hash is, or else would be.
size_t claimed_names::place_of(uint64_t hash) const {
    size_t place = hash & (places_.size() - 1);
    while (places_[place] != 0 && places_[place] != hash) {
        place = (place + 1) & (places_.size() - 1);
    }
    return place;
}

bool claimed_names::claim(const std::string& name) {
    const uint64_t hash = hash_of(name);
    const std::lock_guard<std::mutex> lock(mutex_);
    uint64_t& place = places_[place_of(hash)];
    if (place != 0) {
        return false;
    }
    place = hash;
    if (++taken_ > places_.size() / 4 * 3) {
        grow();
    }
    return true;
}

bool claimed_names::is_claimed(const std::string& name) const {
    const uint64_t hash = hash_of(name);
    const std::lock_guard<std::mutex> lock(mutex_);
    return places_[place_of(hash)] != 0;
}

void claimed_names::grow() {
    std::vector<uint64_t> before(places_.size() * 2);
    before.swap(places_);
    for (const uint64_t hash : before) {
        if (hash != 0) {
            places_[place_of(hash)] = hash;
        }
    }
}
