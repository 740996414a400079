#pragma once

// The Spherical Video V2 boxes of a video sample entry: the stereo box st3d
// and the spherical box sv3d (svhd, and proj with prhd and one projection
// box). Read from a source's entry, and built for an output that carries the
// V1 XML, so that readers of either form see the same sphere.
//
// The initial view as a pose. V1's heading is a compass direction of the
// view (clockwise seen from above, 0 ahead), its pitch positive upwards.
// V2's yaw and pitch turn the projection counter-clockwise about the up and
// the right vector (right-handed, -Z forward, +Y up). Turning the projection
// counter-clockwise by h about up brings what lay at heading h ahead, so
// yaw = heading, taken into -180..180 (270 is -90). Turning it
// counter-clockwise about right lifts what lies ahead, so bringing a view at
// pitch p ahead takes -p: pitch = -p. Roll stays 0.
#include <array>
#include <cstdint>
#include <string>

#include "foundation/byte_array.h"

namespace meta {

enum class V2Projection { None, Equirectangular, Cubemap, Mesh, Unreadable };

struct Pose {
    int32_t yaw = 0;  // 16.16 degrees
    int32_t pitch = 0;
    int32_t roll = 0;
};

// top, bottom, left, right as 0.32 fractions of the frame cropped away.
using ProjectionBounds = std::array<uint32_t, 4>;

struct SphericalV2 {
    bool hasStereo = false;
    uint8_t stereoMode = 0;
    bool hasSpherical = false;
    V2Projection projection = V2Projection::None;
    bool hasPose = false;
    Pose pose;
    bool hasBounds = false;
    ProjectionBounds bounds{};
    std::string metadataSource;
    // The sv3d box as the source holds it, kept for projections we do not
    // write ourselves.
    ByteArray sv3d;

    // A projection we leave as it is: its sv3d stays, and no V1 XML is added.
    bool keepsOwnProjection() const {
        return projection == V2Projection::Cubemap || projection == V2Projection::Mesh;
    }
};

// What the V2 boxes of a video sample entry (its bytes, header included) say.
// Anything cut off or malformed reads as far as it is whole; an sv3d whose
// projection cannot be read is Unreadable.
SphericalV2 readSphericalV2(const uint8_t* entry, uint64_t size);

// The pose for a V1 view (NaN values count as 0), as described above.
Pose poseFromView(float heading, float pitch);
double poseDegrees(int32_t fixed);

// Bounds from the cropped area of a V1 XML; false when it names none that
// fits inside its full panorama.
bool boundsFromSphereXml(const std::string& xml, ProjectionBounds& bounds);
// The stereo mode a V1 XML names (0 when none or unknown).
uint8_t stereoModeFromSphereXml(const std::string& xml);

ByteArray stereoBox(uint8_t mode);
ByteArray sphericalBox(const std::string& metadataSource, const Pose& pose, const ProjectionBounds& bounds);
// sv3d with the pose of its prhd replaced (same size); false when it has no
// readable prhd.
bool withPose(ByteArray& sv3d, const Pose& pose);

}  // namespace meta
