// The library as a whole: whether this process has it open.
#pragma once

namespace disk {

/// Whether hosts called stsm_init more often than stsm_terminate.
bool is_initialised();

} // namespace disk
