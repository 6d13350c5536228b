// What can be known from the settings file alone.

#include "tools/complete/known_names.h"

#include "config/settings.h"
#include "config/settings_check.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr const char* disk_prefix = "disk:";

/// "CS_throttle:TYPE:" of a name that has come that far; else empty.
std::string typed_prefix(const std::string& begun) {
    const std::string prefix = plugin_prefix;
    if (begun.compare(0, prefix.size(), prefix) != 0) {
        return "";
    }
    const size_t colon = begun.find(':', prefix.size());
    return colon == std::string::npos ? "" : begun.substr(0, colon + 1);
}

/// The directories whose paths begin so.
std::vector<std::string> directories(const std::string& begun) {
    std::vector<std::string> found;
    const std::string above = begun.substr(0, begun.rfind('/') + 1);
    std::error_code none;
    for (fs::directory_iterator each(above, none), end; !none && each != end;
         each.increment(none)) {
        std::error_code unknown;
        if (each->is_directory(unknown)) {
            found.push_back(above + each->path().filename().string() + "/");
        }
    }
    return found;
}

} // namespace

std::set<std::string> known_storages() {
    config_set_path(nullptr);
    std::set<std::string> names;
    const checked_settings found = check_settings(plugin_config_path);
    for (const auto& each : found.config.connections) {
        names.insert(each.first);
    }
    return names;
}

candidates known_servers(const std::string& begun, const std::string& type) {
    const std::string typed = typed_prefix(begun);
    const std::string prefix = (typed.empty() ? plugin_prefix + type + ":" : typed) + disk_prefix;
    candidates found;
    for (const std::string& each : known_storages()) {
        found.push_back({prefix + each, "a storage of the settings"});
    }
    const bool is_path = begun.compare(0, prefix.size() + 1, prefix + "/") == 0;
    for (const std::string& each :
         is_path ? directories(begun.substr(prefix.size())) : std::vector<std::string>()) {
        found.push_back({prefix + each, "a directory"});
    }
    if (found.empty()) {
        found.push_back({prefix, "a storage on disk"});
    }
    return found;
}

candidates known_keys(const std::string& behind) {
    candidates found;
    for (const setting& each : settings) {
        if (each.description != nullptr && each.key != nullptr) {
            found.push_back({each.key + behind, each.description});
        }
    }
    for (const std::string& each : known_storages()) {
        found.push_back({storage_prefix + each + behind, "maximum connections of that storage"});
    }
    return found;
}
