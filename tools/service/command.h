// The command "service": asks the management service of this host, and steers it.
#pragma once

#include "tools/host/command.h"

void add_service(CLI::App& app, request& asked);
