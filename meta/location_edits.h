#pragma once

// The position of a movie in its user data: the location boxes added where
// missing, and a short loci the older cameras wrote taken out.
#include <string>

#include "foundation/failure.h"
#include "mp4/box_edits.h"

class GPSInfo;
namespace MP4 {
class Container;
}

namespace meta {

// The edit that adds the location boxes the user data lacks; a failure when
// it has them all or there is no movie box to hold them.
QVMX::Status locationEdit(MP4::Container& container, const GPSInfo& gps, MP4::BoxEdit& edit);
// Both go on without the location boxes when locationEdit fails, with a
// notice saying so.
QVMX::Status appendLocations(MP4::Container& container, const GPSInfo& gps);
// The spherical XML and the location boxes in one copy.
QVMX::Status appendLocationAndSphericalVideoXML(MP4::Container& container, const GPSInfo& gps, const std::string& xml);
// A loci too short to be one is removed; none, or a good one, is no failure.
QVMX::Status removeBadLOCI(MP4::Container& container);

}  // namespace meta
