#pragma once

// The three boxes of a movie's user data that hold a position, as bytes:
// "@xyz" (the ISO 6709 text as given), "loci" (16.16 fixed-point longitude,
// latitude and altitude, no name) and "\xA9xyz" (the text without the
// altitude, language English).
#include "foundation/byte_array.h"

class GPSInfo;

namespace geo {

ByteArray xyzBox(const GPSInfo& gps);
ByteArray lociBox(const GPSInfo& gps);
ByteArray copyrightXyzBox(const GPSInfo& gps);

// The loci a camera wrote short, without its two strings: not a valid box.
constexpr uint64_t kShortLociSize = 28;

}  // namespace geo
