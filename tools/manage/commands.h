// The commands that look after a server and its settings.
#pragma once

#include "tools/host/command.h"

void add_preview(CLI::App& app, request& asked);
void add_explain(CLI::App& app, request& asked);
void add_doctor(CLI::App& app, request& asked);
void add_simulate(CLI::App& app, request& asked);
void add_lsu(CLI::App& app, request& asked);
void add_image(CLI::App& app, request& asked);
void add_events(CLI::App& app, request& asked);
void add_config(CLI::App& app, request& asked);
