// The picture of a run: the rate of each stream and of all together over time, against the allowed
// rate, as one SVG file that needs nothing else.
#pragma once

#include "tools/figures/course.h"

#include <string>
#include <vector>

/// What the picture is made of.
struct plot_data {
    std::string title;
    std::vector<std::string> streams; ///< names
    std::vector<sample> samples;      ///< at least two to draw anything
};

std::string plot_svg(const plot_data& data);
