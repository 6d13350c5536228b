// A line of a table: one measurement, the one that it is seen beside, and what is asked of it.
#pragma once

#include <string>

enum class target {
    none,
    difference, ///< limits what a call takes more than the one beside it
    itself,     ///< limits the call's own time
};

struct comparison {
    std::string call;
    std::string benchmark; ///< that measured it
    std::string beside;
    std::string beside_benchmark;
    target kind;
    double limit;           ///< nanoseconds
    bool allocates = false; ///< else no call may
};
