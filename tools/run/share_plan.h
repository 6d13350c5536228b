// Which stream of a backup archives which entry.
#pragma once

#include "tools/run/files/tree.h"
#include "tools/run/streams/balance.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// What an entry counts for: its content and a usual header, so that empty files count, too.
uint64_t cost_of(const tree_entry& entry);

/// Directories all go to the first stream: their times and modes are set when everything is there.
/// The names of one file go to one stream, where the later ones are links. The heaviest files are
/// spread first, the others in the list's order, each to the stream that has least by then. Takes
/// a byte for each entry.
class share_plan {
  public:
    /// To be told all entries in the list's order.
    explicit share_plan(size_t streams) : planned_(streams) {}
    void note(const tree_entry& entry);
    /// When they are all noted.
    void spread(const tree_list& list);

    size_t streams() const { return planned_.size(); }
    /// Which stream has the entry of that number, the first being 0.
    size_t stream_of(size_t entry) const { return streams() == 1 ? 0 : stream_of_[entry]; }
    /// What that stream's entries cost together.
    uint64_t planned(size_t stream) const { return planned_[stream]; }

  private:
    struct heavy_file {
        uint64_t cost;
        size_t entry;
        dev_t device; ///< with the inode, of a file with other names; else both are 0
        ino_t inode;
    };
    static constexpr uint8_t unplaced = 0xff;

    static bool is_heavier(const heavy_file& left, const heavy_file& right);
    void place_others(const tree_list& list, stream_loads& loads);

    std::vector<uint64_t> planned_;
    std::vector<heavy_file> heaviest_; ///< a heap, the lightest of them first
    size_t noted_ = 0;
    std::vector<uint8_t> stream_of_; ///< empty for one stream
};
