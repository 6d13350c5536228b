// What paces a server and direction, link by link.
#pragma once

#include "config/allowed_rate.h"
#include "tools/host/service_place.h"
#include "tools/host/service_status.h"
#include "tools/terminal/tables.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

/// What is known of it.
struct pacing_facts {
    std::string server;
    operation_type_t direction = OPERATION_WRITE;
    std::string file;           ///< of the settings
    throttling_config_s config; ///< as the file says
    time_t when = 0;            ///< seconds since the epoch
    /// Of the present; none of another time, of which the service knows nothing.
    std::optional<std::vector<service_place>> places;
    std::optional<service_status> status; ///< none where no service answers
};

/// One link of the chain: its name, and what it does.
struct pacing_link {
    std::string name;
    std::string text;
};

/// From the file to what changes next.
std::vector<pacing_link> explanation(const pacing_facts& facts);

/// The same for a program.
ordered_json explanation_json(const pacing_facts& facts);

/// What the settings call the storage of a server: what is behind the last colon.
std::string storage_of(const std::string& server);
