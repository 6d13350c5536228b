// Servers of other plugins, that layers stack on: their names don't begin with "disk:".
#pragma once

namespace disk {

/// STS_ERR_NOT_CLAIMED: no plugin is loaded, so none claims the name.
int find_plugin(const char* server_name);

} // namespace disk
