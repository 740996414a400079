#include "meta/vector_math.h"

#include <cmath>

namespace QVMX {

float Vector3::length() const { return std::sqrt(x * x + y * y + z * z); }

}  // namespace QVMX
