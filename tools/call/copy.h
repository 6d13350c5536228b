// A copy in the storage, before or behind the call.
#pragma once

#include "tools/call/given.h"
#include "tools/call/stage.h"

/// Starts the copy that was given, which is cancelled behind the call.
sts_next_operation_s** start_copy(const argument& which, const given_arguments& given,
                                  call_stage& stage);

/// Waits for its end and answers what came of it. A copy that didn't begin has an empty holder.
/// The holder is gone then.
int end_copy(const call_stage& stage, sts_next_operation_s** holder);
