// One figure for many.
#ifndef BENCH_QUANTILE_H
#define BENCH_QUANTILE_H

#include <algorithm>
#include <cmath>
#include <vector>

// The value below which `share` of the values lie, one of them; 0 when there are none.
inline double Quantile(std::vector<double> values, double share)
{
    if (values.empty()) {
        return 0.0;
    }
    const auto nth = std::lround(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + nth, values.end());
    return values[static_cast<size_t>(nth)];
}

#endif
