#include "tools/host/sharing_notice.h"

#include "config/throttling_util.h"
#include "tools/host/engine_watch.h"
#include "tools/host/service_place.h"
#include "tools/terminal/console.h"

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

bool is_throttling_on() {
    throttling_config_s settings;
    read_config_file_to_var(nullptr, &settings);
    return settings.sample_interval != 0;
}

} // namespace

bool is_paced_by_defaults(const std::string& server) {
    return field_of(server, 1) == global_server_type || server.empty() || server.back() == ':';
}

sharing_notice::sharing_notice(const std::string& server) {
    if (is_paced_by_defaults(server) && is_throttling_on()) {
        is_said_ = true;
        console::get().problem("a server of the type \"global\" or without a name is paced by this "
                               "process alone, by the default settings");
    }
}

void sharing_notice::look() {
    if (is_said_ || !has_service_failed()) {
        return;
    }
    is_said_ = true;
    console::get().problem(no_service_text(service_places()) +
                           ": this is paced by this process alone");
}
