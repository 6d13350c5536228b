// A store whose users are killed, each in a process of its own: at random moments, or at one call
// that changes a file after the other. Behind each of them the store is looked at.
#pragma once

#include "tests/platform/sts/disk_store.h"

#include <functional>
#include <random>

class KillStore : public DiskStore {
  protected:
    /// Runs `body` again and again in as many processes as there are rounds, each of which is
    /// killed at a moment within `longest_microseconds` of its beginning, and `check` behind each.
    /// The seed is printed; --gtest_random_seed asks for one.
    void at_random_moments(unsigned rounds, unsigned longest_microseconds,
                           const std::function<void(std::mt19937& random)>& body,
                           const std::function<void()>& check);

    /// Runs `body` in processes that are killed at one call after the other, `prepare` before and
    /// `check` behind each, until one of them comes to its end.
    void at_every_call(const std::function<void()>& prepare, const std::function<void()>& body,
                       const std::function<void()>& check);

    /// What users that were killed have left behind, anywhere in the store.
    size_t leftovers() const;

    // Images in versions: from end to end, metadata too, of one byte that is the version.
    void write_version(sts_next_image_s* image, unsigned version);
    void store_version(const std::string& name, unsigned version);
    /// The version of an image that has to be whole.
    unsigned whole_version(const std::string& name, const std::string& lsu = "lsu");

    size_t left_behind = 0; ///< how much of that at_random_moments has met

  private:
    /// Opens a server, which removes what was left behind.
    void expect_tidy();
    void expect_readable_events();
};
