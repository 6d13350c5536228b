#include "tools/host/allowance.h"

#include "tools/host/engine_watch.h"
#include "tools/host/sharing_notice.h"
#include "tools/terminal/sizes.h"

#include <ctime>

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
    return allowed_rate(settings_, direction_, local_time(time(nullptr))) / sharing_connections();
}
