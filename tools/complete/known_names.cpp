#include "tools/complete/known_names.h"

#include "tools/call/table.h"
#include "tools/host/entry_list.h"
#include "tools/run/backup_set.h"
#include "tools/terminal/sizes.h"

#include <cstdlib>
#include <filesystem>
#include <functional>

namespace {

/// Whether a storage on disk is there: opening it would make it anew.
bool is_there(const std::string& server) {
    const size_t colon = server.rfind(':');
    const std::string name = server.substr(colon + 1);
    const std::string disk = ":disk";
    if (colon < disk.size() || server.compare(colon - disk.size(), disk.size(), disk) != 0) {
        return true;
    }
    const char* const above = getenv("VL_STS_ROOT");
    std::error_code unknown;
    return std::filesystem::is_directory(
        std::filesystem::path(above != nullptr ? above : "") / name, unknown);
}

/// What `listed` finds on a server. Nothing of what goes wrong is told: somebody is typing.
candidates asked(const server_options& options,
                 const std::function<candidates(host_server&)>& listed) {
    const std::string storage = options.server.substr(options.server.rfind(':') + 1);
    if (known_storages().count(storage) == 0 || !is_there(options.server)) {
        return {};
    }
    try {
        connection to(options);
        return listed(to.server);
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace

candidates known_lsus(const server_options& server) {
    return asked(server, [](host_server& opened) {
        candidates found;
        for (const std::string& each : opened.lsus()) {
            found.push_back({each, "an LSU"});
        }
        return found;
    });
}

candidates known_images(const server_options& server, const std::string& lsu) {
    return asked(server, [&](host_server& opened) {
        candidates found;
        for (const listed_image& each : opened.images(lsu)) {
            found.push_back({each.name, size_text(each.size)});
        }
        return found;
    });
}

candidates known_groups(const server_options& server, const std::string& lsu) {
    return asked(server, [&](host_server& opened) {
        candidates found;
        for (const listed_image& each : opened.images(lsu)) {
            found.push_back({each.group, "a group"});
        }
        return found;
    });
}

candidates known_backups(const server_options& server, const std::string& lsu) {
    return asked(server, [&](host_server& opened) {
        candidates found;
        for (const listed_image& each : opened.images(lsu)) {
            found.push_back({backup_of(each.name), "a backup"});
        }
        return found;
    });
}

candidates known_entries() {
    candidates found;
    for (const entry& each : all_entries()) {
        found.push_back({each.name, description_of(each).summary});
    }
    return found;
}
