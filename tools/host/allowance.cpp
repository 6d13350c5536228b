#include "tools/host/allowance.h"

#include "tools/host/engine_watch.h"

#include <ctime>

namespace {

/// The text behind colon number `colon` of a server name, up to the next; empty when there is none.
std::string field_of(const std::string& name, int colon) {
    size_t start = 0;
    for (; colon > 0; --colon) {
        const size_t found = name.find(':', start);
        if (found == std::string::npos) {
            return {};
        }
        start = found + 1;
    }
    return name.substr(start, name.find(':', start) - start);
}

/// A server that never connects to the service is paced by the defaults, whatever the files say.
bool is_paced_by_defaults(const std::string& server) {
    return field_of(server, 1) == global_server_type || server.empty() || server.back() == ':';
}

} // namespace

allowance::allowance(const std::string& server, operation_type_t direction)
    : direction_(direction) {
    config_set_path(nullptr);
    read_config_file_to_var(nullptr, &settings_);
    if (is_paced_by_defaults(server)) {
        const int32_t interval = settings_.sample_interval;
        settings_ = {};
        settings_.sample_interval = interval; // throttling is switched by the files all the same
    }
}

std::optional<uint64_t> allowance::now() const {
    if (settings_.sample_interval == 0) {
        return {};
    }
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    return allowed_rate(settings_, direction_, local) / sharing_connections();
}
