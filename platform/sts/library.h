// The library as a whole: how many users of this process have it open.
#pragma once

namespace disk {

/// Whether stsm_init was called more often than stsm_terminate.
bool is_initialised();

} // namespace disk
