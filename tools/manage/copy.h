// Copies an image by the storage's own means: started, watched, and cancelled on SIGINT or SIGTERM.
#pragma once

#include "tools/host/block.h"
#include "tools/host/plugin_host.h"
#include "tools/terminal/signals.h"

#include <cstdint>
#include <string>

struct copy_request {
    std::string lsu;
    std::string image;
    std::string to_server; ///< full name, or the next layer's; empty: the same server
    std::string to_lsu;
    std::string to_image;
    uint64_t rate = 0;              ///< bytes per second; 0: as fast as it goes
    uint64_t block = default_block; ///< bytes copied between two looks at a cancel
};

/// Copies and returns what the program ends with. `caught` has lived since before the server was
/// opened, so that no thread behind it takes the signals.
int copy_image(const host_server& server, const copy_request& wanted, const signals& caught);

/// The name by which the layer below the plugin knows a server; a name without the plugin's prefix
/// is that already.
std::string next_layer_name(const std::string& server);
