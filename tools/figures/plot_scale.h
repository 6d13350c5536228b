// The scale of an axis.
#pragma once

/// A scale from 0 with round steps of 1, 2 or 5 times a power of ten.
struct axis_scale {
    double step;
    double end; ///< the first step that reaches the largest value
};

/// `largest` is at least 0; at most `most_steps` steps are made, but one at least.
axis_scale scale_for(double largest, int most_steps);
