// One figure for many.
#ifndef SIM_QUANTILE_H
#define SIM_QUANTILE_H

#include <algorithm>
#include <cmath>
#include <vector>

// The smallest of the values that is not below `share` (0..1) of them; 0 when there are none.
inline double Quantile(std::vector<double> values, double share)
{
    if (values.empty()) {
        return 0.0;
    }
    const double rank = std::ceil(share * static_cast<double>(values.size()));
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>(std::max(rank, 1.0)) - 1;
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

#endif
