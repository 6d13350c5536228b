// The names that this host knows, for whoever begins to type one. Asking leaves nothing behind: no storage is
// opened that the settings don't name yet, since the plugin would add it to them.
#pragma once

#include "tools/host/connection.h"

#include <set>
#include <string>
#include <vector>

struct candidate {
    std::string word;
    std::string about; ///< a few words; may be empty
};

using candidates = std::vector<candidate>;

/// The storages that the settings name.
std::set<std::string> known_storages();

/// Full names of the servers of all storages that the settings name, and of the directories that `begun` may go
/// on to. The type is the one that `begun` has, else `type`.
candidates known_servers(const std::string& begun, const std::string& type);

/// What the server has: nothing where it can't be asked.
candidates known_lsus(const server_options& server);
candidates known_images(const server_options& server, const std::string& lsu);
candidates known_groups(const server_options& server, const std::string& lsu);
candidates known_backups(const server_options& server, const std::string& lsu);

/// The keys of the plugin's settings, with `behind` behind each.
candidates known_keys(const std::string& behind);

candidates known_entries();
