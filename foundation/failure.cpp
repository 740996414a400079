#include "foundation/failure.h"

#include <cstring>

#include "foundation/wchar.h"

namespace QVMX {

// The conversion may leave a terminating NUL in the string; it is not part of the words.
std::wstring systemCause(int error) { return wchar::mbs2wcs(std::strerror(error)).c_str(); }

}  // namespace QVMX
