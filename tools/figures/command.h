// "plot".
#pragma once

#include "tools/host/command.h"

void add_plot(CLI::App& app, request& asked);
