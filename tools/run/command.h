// "run".
#pragma once

#include "tools/host/command.h"

void add_run(CLI::App& app, request& asked);
