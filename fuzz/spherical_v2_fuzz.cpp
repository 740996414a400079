// Reads arbitrary bytes as a video sample entry's V2 boxes, puts our boxes
// after its configuration box, and reads the result again: what we place
// must read back whole.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "meta/spherical_v2.h"
#include "mp4/sample_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    meta::SphericalV2 read = meta::readSphericalV2(data, size);
    if (read.keepsOwnProjection()) {
        ByteArray sv3d = read.sv3d;
        meta::withPose(sv3d, meta::poseFromView(270.0f, -10.0f));
    }
    const meta::Pose pose = meta::poseFromView(-90.0f, 45.0f);
    ByteArray boxes = meta::stereoBox(read.stereoMode);
    const ByteArray sv3d = meta::sphericalBox(read.metadataSource, pose, read.bounds);
    boxes.append(sv3d.data, sv3d.size);

    MP4::EntryRewrite rewrite;
    if (!MP4::placeAfterConfiguration(data, size, boxes, rewrite)) return 0;
    if (rewrite.from > rewrite.to || rewrite.to > size) std::abort();
    ByteArray entry(data, rewrite.from);
    entry.append(rewrite.bytes.data, rewrite.bytes.size);
    entry.append(data + rewrite.to, size - rewrite.to);
    const meta::SphericalV2 again = meta::readSphericalV2(entry.data, entry.size);
    if (again.projection != meta::V2Projection::Equirectangular || again.pose.yaw != pose.yaw ||
        again.pose.pitch != pose.pitch || again.stereoMode != read.stereoMode) {
        std::abort();
    }
    return 0;
}
