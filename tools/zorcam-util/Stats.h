#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

namespace zorcam_util {

/// Nearest-rank percentile (p from 0 to 100) of a sorted vector; NaN when it is empty.
inline double percentile(const std::vector<double>& sorted, double p) {
    if (sorted.empty()) return NAN;
    size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * sorted.size()));
    if (rank < 1) rank = 1;
    return sorted[std::min(rank, sorted.size()) - 1];
}

}  // namespace zorcam_util
