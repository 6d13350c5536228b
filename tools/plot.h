// The picture of a run: the rate of each stream and of all together over time, against the allowed
// rate, as one SVG file that needs nothing else.
#pragma once

#include "tools/transfer.h"

#include <string>
#include <vector>

/// What the picture is made of.
struct plot_data {
    std::string title;
    std::vector<std::string> streams; ///< names
    std::vector<sample> samples;      ///< at least two to draw anything
};

std::string plot_svg(const plot_data& data);

/// A scale from 0 with round steps of 1, 2 or 5 times a power of ten.
struct axis_scale {
    double step;
    double end; ///< the first step that reaches the largest value
};

/// `largest` is at least 0; at most `most_steps` steps are made, but one at least.
axis_scale scale_for(double largest, int most_steps);

/// Text for XML: marked characters escaped, what XML can't hold replaced.
std::string xml_text(const std::string& text);
