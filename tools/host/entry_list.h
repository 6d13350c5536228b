// Every entry that a host can call, as it is declared: the 57 of the plugin's table in slot order,
// then those of its second table.
#pragma once

#include "tools/host/plugin_host.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct parameter {
    std::string type; ///< as in C++
    std::string name;
};

struct entry {
    std::string name; ///< without "throttling_"
    bool is_supported = true;
    std::vector<parameter> parameters;
    /// Calls it in a loaded plugin. Numbers and pointers are passed as they are, records that go by
    /// value by their address.
    std::function<int(const plugin_host& host, const std::vector<uint64_t>& arguments)> call;
};

const std::vector<entry>& all_entries();

/// By its name, with or without "throttling_"; null where there is none.
const entry* find_entry(const std::string& name);
