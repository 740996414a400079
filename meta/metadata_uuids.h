#pragma once

// The uuid boxes that carry the camera's metadata: the Spherical Video V1
// XML in the video track, the XMP packet and the AXIS tilt stream at the
// top level. Each is added once.
#include <string>

#include "foundation/failure.h"
#include "mp4/box_edits.h"
#include "mp4/uuid_box.h"

namespace MP4 {
class Container;
}

namespace meta {

extern const MP4::UserType kSphericalXmlUuid;
extern const MP4::UserType kXmpUuid;
extern const MP4::UserType kAxisUuid;

// The edit that puts the Spherical Video XML box in place: over an
// existing one, else at the end of the video track.
bool sphericalVideoXmlEdit(MP4::Container& container, const std::string& xml, MP4::BoxEdit& edit);
QVMX::Status appendSphericalVideoXML(MP4::Container& container, const std::string& xml);
// After every other box; a movie that has one already keeps it (and the
// line says so).
QVMX::Status appendXMP(MP4::Container& container, const std::string& xmp);
QVMX::Status appendAxis(MP4::Container& container, const std::string& payload);

}  // namespace meta
