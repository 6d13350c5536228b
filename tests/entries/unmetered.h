// The surroundings of the plugin, where the memory_meter stands still: the next layer, the host,
// the service's client and the files. What they take is none of the plugin's.
#pragma once

#include "plugin/stsapi.h"

/// The table of the recording next layer.
const sts_api_t* unmetered_table();

/// The callback of a host_session.
void leave_unmetered(sts_session_def_v7_t& session);

/// The client of the service, until the service is made anew.
void leave_client_unmetered();
