// The arguments of a call that are opened or started before it, and ended behind it.
#pragma once

#include "tools/call/given.h"
#include "tools/call/stage.h"

uint64_t make_opened(const argument& which, const given_arguments& given, call_stage& stage);
