// The arguments of a call that are made from what was given.
#pragma once

#include "tools/call/given.h"
#include "tools/call/stage.h"

uint64_t make_value(const argument& which, const given_arguments& given, call_stage& stage);
