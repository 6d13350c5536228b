// The way down: one call of the next layer is `next<&sts_api_t::read_image>(image, buffer, ...)`.
#pragma once

#include "plugin/throttling.h"

#include <utility>

/// Calls a slot of the next layer. The table is read afresh at each call; while none is bound the
/// status is that of sts_notinit.
template <auto slot, typename... Arguments>
inline int next(Arguments&&... arguments) {
    const sts_api_t* const api = sts_api;
    return api != nullptr ? (api->*slot)(std::forward<Arguments>(arguments)...) : sts_notinit();
}
