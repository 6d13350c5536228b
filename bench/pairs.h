// Benchmarks in pairs: an entry of the plugin, and beside it the slot of the next layer that it
// calls.
#pragma once

#include "bench/comparison.h"
#include "bench/measure.h"
#include "bench/next_layer.h"
#include "bench/plugin_host.h"

#include <string>
#include <vector>

/// An argument that a layer has its own of: what the slot is given, and what its entry is given.
template <typename Next, typename Ours>
struct swapped {
    Next next;
    Ours ours;
};
template <typename Next, typename Ours>
swapped(Next, Ours) -> swapped<Next, Ours>;

template <typename Argument>
Argument for_slot(Argument argument) {
    return argument;
}
template <typename Next, typename Ours>
Next for_slot(const swapped<Next, Ours>& argument) {
    return argument.next;
}

template <typename Argument>
Argument for_entry(Argument argument) {
    return argument;
}
template <typename Next, typename Ours>
Ours for_entry(const swapped<Next, Ours>& argument) {
    return argument.ours;
}

/// Registers pairs of benchmarks and notes their lines.
class pairs {
  public:
    static constexpr double limit = 40; ///< nanoseconds that an entry may take more than its slot

    /// An entry that swaps and calls. Both calls take the same arguments but for those swapped.
    template <auto slot, auto entry, typename... Arguments>
    void add(const std::string& name, Arguments... arguments) {
        limit_to(limit, add_calls<slot, entry>(name, arguments...));
    }

    /// One that reads or writes the settings' file as well, which takes what files take.
    template <auto slot, auto entry, typename... Arguments>
    void add_with_file(const std::string& name, Arguments... arguments) {
        add_calls<slot, entry>(name, arguments...).allocates = true;
    }

    /// Entries, `count` of them, that together make something and have it released again.
    template <typename SlotCalls, typename EntryCalls>
    void add_making(const std::string& name, int count, SlotCalls slots, EntryCalls entries) {
        comparison& line = add_pair(name, count == 1 ? "its slot" : "their slots", slots, entries);
        limit_to(count * limit, line);
        line.allocates = true;
    }

    const std::vector<comparison>& lines() const { return lines_; }

  private:
    static void limit_to(double nanoseconds, comparison& line) {
        line.kind = target::difference;
        line.limit = nanoseconds;
    }

    template <auto slot, auto entry, typename... Arguments>
    comparison& add_calls(const std::string& name, Arguments... arguments) {
        return add_pair(
            name, "its slot",
            [&api = idle_next_layer(), arguments...] {
                return (api.*slot)(for_slot(arguments)...);
            },
            [&ep = the_plugin_host().ep(), arguments...] {
                return (ep.*entry)(for_entry(arguments)...);
            });
    }

    template <typename SlotCall, typename EntryCall>
    comparison& add_pair(const std::string& name, const std::string& beside, SlotCall slot,
                         EntryCall entry) {
        const std::string slot_name = "slot: " + name;
        const std::string entry_name = "entry: " + name;
        add_call(slot_name, slot);
        add_call(entry_name, entry);
        return lines_.emplace_back(
            comparison{"`" + name + "`", entry_name, beside, slot_name, target::none, 0});
    }

    /// Throws unless the call succeeds: a refusal isn't what is to be measured.
    template <typename Call>
    static void add_call(const std::string& name, Call call) {
        require_ok(call(), name.c_str());
        benchmark::RegisterBenchmark(name.c_str(), [call](benchmark::State& state) {
            measure(state, [&] { benchmark::DoNotOptimize(call()); });
        });
    }

    std::vector<comparison> lines_;
};
