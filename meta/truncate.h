#pragma once

#include <cmath>
#include <cstdint>

namespace meta {

// A float truncated toward zero to a signed 32-bit integer. Values that do not
// fit (NaN included) give INT32_MIN, as the processor's conversion does,
// instead of the undefined behaviour of a plain cast.
inline int32_t truncateToInt32(float v) {
    if (!(v > -2147483904.0f && v < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(v);
}

}  // namespace meta
