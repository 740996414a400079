#pragma once

#include <cmath>
#include <limits>

namespace geo {

// Float to integer, truncated toward zero, clamped to the integer's range;
// NaN gives 0. Values from files and command lines can be anything, and a
// plain cast of an out-of-range value is undefined.
template <typename Int>
Int truncateSaturated(double value) {
    if (std::isnan(value)) return 0;
    constexpr double lo = static_cast<double>(std::numeric_limits<Int>::min());
    // max + 1 is a power of two and exact in double.
    constexpr double hiExclusive = (static_cast<double>(std::numeric_limits<Int>::max() / 2 + 1)) * 2.0;
    if (value <= lo) return std::numeric_limits<Int>::min();
    if (value >= hiExclusive) return std::numeric_limits<Int>::max();
    return static_cast<Int>(value);
}

}  // namespace geo
