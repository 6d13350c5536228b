#include "tools/figures/plot_scale.h"

#include <cmath>
#include <initializer_list>

axis_scale scale_for(double largest, int most) {
    if (!(largest > 0)) {
        return {1, 1};
    }
    const double power = std::pow(10.0, std::floor(std::log10(largest / most)));
    double step = power;
    for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
        step = factor * power;
        if (std::ceil(largest / step) <= most) {
            break;
        }
    }
    return {step, std::ceil(largest / step) * step};
}
