// How a server is reached: through the plugin, which hears what the operator wants to see.
#pragma once

#include "tools/host/engine_watch.h"
#include "tools/host/plugin_host.h"

#include <string>

struct server_options {
    std::string plugin; ///< path; empty: the one beside the program, or the loader's
    log_choice log = log_choice::nothing;
    std::string server; ///< its full name
};

/// The plugin, loaded, and the server, opened through it.
struct connection {
    /// `label` names the session to the service; empty: the program does. One for each process.
    explicit connection(const server_options& options, const std::string& label = {});

    plugin_host host;
    host_server server;
};

/// Closes the server and returns what the program ends with: it fails when entries of lists were
/// passed over.
int ended(host_server& server);
