// What the management service answers to an exchange: four values, a row each.
#pragma once

#include <string>

inline std::string reply_row(const std::string& name, long value) {
    return "name=" + name + ",description=x,type=int,value=" + std::to_string(value) + ",fixed=y;";
}

inline std::string reply_text(long readers, long writers, long free_flow = 0,
                              long wait_seconds = 0) {
    return reply_row("THR_R_CONNECTION_COUNTS", readers) +
           reply_row("THR_W_CONNECTION_COUNTS", writers) + reply_row("THR_FREE_FLOW", free_flow) +
           reply_row("THR_WAIT_SECONDS", wait_seconds);
}
