// "run".
#pragma once

#include "tools/host/command.h"

void add_pipe(CLI::App& app, request& asked);
void add_run(CLI::App& app, request& asked);
