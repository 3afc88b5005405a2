// Gains from speakers to speakers.
#pragma once

#include <cmath>
#include <vector>

#include "channels.h"

namespace host {

struct Matrix {
    ChannelMap inputs, outputs;            // columns and rows
    std::vector<std::vector<double>> gain; // [output][input], linear

    double row_sum(size_t output) const { // gain of an output when all inputs agree, the worst case
        double sum = 0.0;
        for (double g : gain[output])
            sum += std::fabs(g);
        return sum;
    }
    size_t worst_row() const {
        size_t worst = 0;
        for (size_t o = 0; o < gain.size(); o++)
            worst = row_sum(o) > row_sum(worst) ? o : worst;
        return worst;
    }
};

} // namespace host
