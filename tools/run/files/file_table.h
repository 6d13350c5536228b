// Files by what they are, whatever their names: what is known of each, in 16 to 48 bytes a file.
#pragma once

#include <cstdint>
#include <optional>
#include <sys/types.h>
#include <vector>

class file_table {
  public:
    file_table();

    /// What was added for that file; none when nothing was.
    std::optional<uint64_t> find(dev_t device, ino_t inode) const;
    /// For a file that isn't there; `value` takes 47 bits at most.
    void add(dev_t device, ino_t inode, uint64_t value);

  private:
    struct place {
        uint64_t inode = 0;
        uint64_t device_and_value = 0; ///< the device's place in `devices_`, 1 added; 0: free
    };

    std::optional<uint64_t> number_of(dev_t device) const;
    size_t place_of(uint64_t inode, uint64_t device) const;
    void grow();

    std::vector<place> places_; ///< at most three quarters are taken
    size_t taken_ = 0;
    std::vector<dev_t> devices_;
};
