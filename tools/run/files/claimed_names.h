// Which names a restore has made, or tried to. A name is claimed once: what the images say of it
// later is refused, so that no stream changes what another has made.
//
// Eight bytes of hash stand for a name, under a key that is drawn for each run: nobody can make up
// two names of one hash. Two that meet by chance (one run of ten million names in 400,000) cost an
// error for the second and nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

class claimed_names {
  public:
    claimed_names();

    /// False when somebody has claimed it before.
    bool claim(const std::string& name);
    bool is_claimed(const std::string& name) const;

  private:
    uint64_t hash_of(const std::string& name) const;
    size_t place_of(uint64_t hash) const;
    void grow();

    uint64_t key_;
    mutable std::mutex mutex_;     ///< of what is below
    std::vector<uint64_t> places_; ///< 0: free; at most three quarters are taken
    size_t taken_ = 0;
};
