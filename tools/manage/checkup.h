// Whether all is there that throttling needs, and as it has to be.
#pragma once

#include <string>
#include <vector>

struct health_line {
    enum state_t { good, note, bad } state; ///< bad: somebody has to do something
    std::string what;
    std::string text;
};

/// Of the files, directories, rights, the log, the service and the clock. Changes nothing.
std::vector<health_line> checkup();

/// Whether starting the plugin would change nothing, as its settings are there and can be read.
bool may_start_plugin();
