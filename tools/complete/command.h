// The command "complete", of which no help tells: what may stand next on a command line. The files in
// completion/ ask it for their shells.
#pragma once

#include "tools/host/command.h"

void add_complete(CLI::App& app, request& asked);
