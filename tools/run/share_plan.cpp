#include "tools/run/share_plan.h"

#include "tools/run/files/file_table.h"

#include <algorithm>
#include <sys/stat.h>
#include <tuple>

namespace {

constexpr uint64_t entry_cost = 768; // bytes of a plain header and half of a content's last block
constexpr size_t most_heavy_files = size_t{64} * 1024;

} // namespace

uint64_t cost_of(const tree_entry& entry) { return entry_cost + entry.size; }

/// Names of one file are neighbours in this order.
bool share_plan::is_heavier(const heavy_file& left, const heavy_file& right) {
    return std::tie(left.cost, left.device, left.inode, right.entry) >
           std::tie(right.cost, right.device, right.inode, left.entry);
}

void share_plan::note(const tree_entry& entry) {
    const size_t number = noted_++;
    if (streams() == 1) {
        planned_[0] += cost_of(entry);
        return;
    }
    if (S_ISDIR(entry.mode)) {
        return;
    }
    const bool is_known = has_other_names(entry);
    heaviest_.push_back(
        {cost_of(entry), number, is_known ? entry.device : 0, is_known ? entry.inode : 0});
    std::push_heap(heaviest_.begin(), heaviest_.end(), is_heavier);
    if (heaviest_.size() > most_heavy_files) {
        std::pop_heap(heaviest_.begin(), heaviest_.end(), is_heavier);
        heaviest_.pop_back();
    }
}

void share_plan::spread(const tree_list& list) {
    if (streams() == 1) {
        return;
    }
    std::sort(heaviest_.begin(), heaviest_.end(), is_heavier);
    heaviest_.erase(std::unique(heaviest_.begin(), heaviest_.end(),
                                [](const heavy_file& left, const heavy_file& right) {
                                    return right.inode != 0 && left.inode == right.inode &&
                                           left.device == right.device;
                                }),
                    heaviest_.end());
    std::vector<uint64_t> costs;
    for (const heavy_file& each : heaviest_) {
        costs.push_back(each.cost);
    }
    stream_loads loads(streams());
    const std::vector<size_t> stream_of_heavy = balance(costs, loads);
    stream_of_.assign(noted_, unplaced);
    for (size_t each = 0; each < heaviest_.size(); ++each) {
        stream_of_[heaviest_[each].entry] = static_cast<uint8_t>(stream_of_heavy[each]);
    }
    heaviest_ = {};
    place_others(list, loads);
}

void share_plan::place_others(const tree_list& list, stream_loads& loads) {
    file_table stream_of_file;
    tree_list::reader entries(list);
    for (uint8_t& stream : stream_of_) {
        const tree_entry& entry = *entries.next();
        const bool has_others = has_other_names(entry);
        const auto found =
            has_others ? stream_of_file.find(entry.device, entry.inode) : std::nullopt;
        if (S_ISDIR(entry.mode)) {
            stream = 0;
        } else if (found) {
            stream = static_cast<uint8_t>(*found);
        } else if (stream == unplaced) {
            stream = static_cast<uint8_t>(loads.place(cost_of(entry)));
        }
        if (has_others && !found) {
            stream_of_file.add(entry.device, entry.inode, stream);
        }
        planned_[stream] += cost_of(entry);
    }
}
