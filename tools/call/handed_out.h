// The arguments of a call in which an entry hands something out.
#pragma once

#include "tools/call/given.h"
#include "tools/call/stage.h"

/// Handles, which are closed behind the call.
uint64_t make_handle_out(const argument& which, call_stage& stage);

/// What is shown.
uint64_t make_shown(const argument& which, const given_arguments& given, call_stage& stage);
