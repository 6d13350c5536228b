// An ORB library of the test's own in place of libvlorbST: it keeps what is asked of it. What it
// connects to is the service of the environment's VLSL_PORT, unless the test says otherwise.
#pragma once

#include "platform/vlorb/Orb.h"

#include <functional>
#include <string>
#include <vector>

struct orb_record {
    /// Each call as it came: Orb("", "COrbClient", "", false, 1024), init(null), ~Orb, ...
    std::vector<std::string> calls;
    Orb* current = nullptr; ///< the last that was made, while it lives
    int alive = 0;
    /// Called at the start of each operation with its name; may throw. May be empty.
    std::function<void(const std::string& operation)> at;
    /// What connect hands out instead of the service; may be empty.
    std::function<CORBA::Object*()> connects_to;
    /// What setObjectRequestTimeout answers.
    CORBA::Object* timed = nullptr;

    /// The calls since the last time.
    std::vector<std::string> take();
};

/// Of all Orbs of this process.
orb_record& orbs();
