// "call".
#pragma once

#include "tools/host/command.h"

void add_call(CLI::App& app, request& asked);
