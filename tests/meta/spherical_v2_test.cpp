// The V2 boxes: the pose a V1 view becomes, the boxes we write read back,
// and what a source's boxes say, whole or damaged.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "meta/spherical_v2.h"
#include "tools/builders/box_builder.h"

namespace {

using builders::be32;
using builders::box;
std::string full(const std::string& type, const std::string& payload) { return builders::fullBox(type, 0, 0, payload); }
std::string entry(const std::string& children) { return box("avc1", std::string(78, '\0') + children); }
const std::string kAvcC = box("avcC", "\x01\x42\xc0\x1e");

meta::SphericalV2 read(const std::string& e) {
    return meta::readSphericalV2(reinterpret_cast<const uint8_t*>(e.data()), e.size());
}
std::string text(const ByteArray& b) { return std::string(b.view()); }

TEST(SphericalPose, HeadingBecomesYawInTheHalfTurnAndPitchTurnsSign) {
    const meta::Pose ahead = meta::poseFromView(0, 0);
    EXPECT_EQ(ahead.yaw, 0);
    EXPECT_EQ(ahead.pitch, 0);
    EXPECT_EQ(meta::poseFromView(90, 0).yaw, 90 * 65536);
    // A heading past the half turn is the same direction the other way round.
    EXPECT_EQ(meta::poseFromView(270, 0).yaw, -90 * 65536);
    EXPECT_EQ(meta::poseFromView(359, 0).yaw, -1 * 65536);
    EXPECT_EQ(meta::poseFromView(180, 0).yaw, 180 * 65536);
    EXPECT_EQ(meta::poseFromView(-30, 0).yaw, -30 * 65536);
    EXPECT_EQ(meta::poseFromView(725, 0).yaw, 5 * 65536);
    // Looking down at the start: the projection is turned up to bring it ahead.
    EXPECT_EQ(meta::poseFromView(0, -10).pitch, 10 * 65536);
    EXPECT_EQ(meta::poseFromView(0, 45).pitch, -45 * 65536);
    EXPECT_EQ(meta::poseFromView(0, 120).pitch, -90 * 65536);
    EXPECT_EQ(meta::poseFromView(12.5f, 0).yaw, 12 * 65536 + 32768);
    const meta::Pose none = meta::poseFromView(NAN, NAN);
    EXPECT_EQ(none.yaw, 0);
    EXPECT_EQ(none.pitch, 0);
    EXPECT_EQ(none.roll, 0);
    EXPECT_DOUBLE_EQ(meta::poseDegrees(-90 * 65536), -90.0);
}

TEST(SphericalBoxes, WhatWeWriteIsLaidOutAsTheDocumentSaysAndReadsBack) {
    EXPECT_EQ(text(meta::stereoBox(1)), full("st3d", "\x01"));
    meta::Pose pose;
    pose.yaw = -90 * 65536;
    pose.pitch = 10 * 65536;
    const ByteArray sv3d = meta::sphericalBox("tool 1.0", pose, {1, 2, 3, 4});
    const std::string expected =
        box("sv3d", full("svhd", std::string("tool 1.0") + '\0') +
                        box("proj", full("prhd", be32(uint32_t(pose.yaw)) + be32(uint32_t(pose.pitch)) + be32(0)) +
                                        full("equi", be32(1) + be32(2) + be32(3) + be32(4))));
    EXPECT_EQ(text(sv3d), expected);

    const meta::SphericalV2 back = read(entry(kAvcC + text(meta::stereoBox(2)) + expected + box("pasp", "12345678")));
    EXPECT_TRUE(back.hasStereo);
    EXPECT_EQ(back.stereoMode, 2);
    EXPECT_EQ(back.projection, meta::V2Projection::Equirectangular);
    EXPECT_FALSE(back.keepsOwnProjection());
    EXPECT_EQ(back.pose.yaw, pose.yaw);
    EXPECT_EQ(back.pose.pitch, pose.pitch);
    EXPECT_EQ(back.bounds, (meta::ProjectionBounds{1, 2, 3, 4}));
    EXPECT_EQ(back.metadataSource, "tool 1.0");
}

TEST(SphericalBoxes, OtherProjectionsAreKeptAndOnlyTheirPoseTurns) {
    const std::string mesh =
        box("sv3d", full("svhd", std::string(1, '\0')) +
                        box("proj", full("prhd", std::string(12, '\0')) + full("mshp", std::string(20, '\7'))));
    const meta::SphericalV2 source = read(entry(kAvcC + full("st3d", "\x03") + mesh));
    EXPECT_EQ(source.projection, meta::V2Projection::Mesh);
    EXPECT_TRUE(source.keepsOwnProjection());
    EXPECT_EQ(source.stereoMode, 3);
    ASSERT_EQ(text(source.sv3d), mesh);
    ByteArray turned = source.sv3d;
    ASSERT_TRUE(meta::withPose(turned, meta::poseFromView(270, -10)));
    ASSERT_EQ(turned.size, source.sv3d.size);
    const meta::SphericalV2 again = read(entry(kAvcC + text(turned)));
    EXPECT_EQ(again.pose.yaw, -90 * 65536);
    EXPECT_EQ(again.pose.pitch, 10 * 65536);
    // Everything but the pose is as it was.
    EXPECT_EQ(text(turned).substr(0, 40), mesh.substr(0, 40));
    EXPECT_EQ(text(turned).substr(52), mesh.substr(52));

    const std::string cube = box("sv3d", box("proj", full("prhd", std::string(12, '\0')) + full("cbmp", std::string(8, '\0'))));
    EXPECT_EQ(read(entry(kAvcC + cube)).projection, meta::V2Projection::Cubemap);
    ByteArray noPose(box("sv3d", box("proj", full("cbmp", std::string(8, '\0')))).data(), 32);
    EXPECT_FALSE(meta::withPose(noPose, meta::Pose{}));
}

TEST(SphericalBoxes, DamagedBoxesReadAsFarAsTheyAreWholeAndNeverBeyond) {
    // Nothing at all, or an entry too short for its fields.
    EXPECT_FALSE(read(entry(kAvcC)).hasSpherical);
    EXPECT_FALSE(read("abc").hasSpherical);
    EXPECT_FALSE(meta::readSphericalV2(nullptr, 0).hasSpherical);
    // An sv3d cut off at the end of the entry, or one whose proj is missing.
    const std::string cut = entry(kAvcC) + be32(300) + "sv3d" + "proj";
    const meta::SphericalV2 cutRead = read(cut);
    EXPECT_TRUE(cutRead.hasSpherical);
    EXPECT_EQ(cutRead.projection, meta::V2Projection::Unreadable);
    EXPECT_EQ(read(entry(kAvcC + box("sv3d", full("svhd", "x")))).projection, meta::V2Projection::Unreadable);
    // Fields shorter than they must be: a prhd of 8 bytes, an st3d without
    // its mode, an equi without its bounds.
    const meta::SphericalV2 shortFields =
        read(entry(kAvcC + full("st3d", "") + box("sv3d", box("proj", full("prhd", "1234") + full("equi", "12")))));
    EXPECT_FALSE(shortFields.hasStereo);
    EXPECT_FALSE(shortFields.hasPose);
    EXPECT_FALSE(shortFields.hasBounds);
    EXPECT_EQ(shortFields.projection, meta::V2Projection::Equirectangular);
    // A svhd whose text has no end stops at the box's end.
    EXPECT_EQ(read(entry(kAvcC + box("sv3d", full("svhd", "abc")))).metadataSource, "abc");
}

TEST(SphericalBoxes, BoundsComeFromTheV1CroppedAreaAndStereoFromItsMode) {
    const std::string xml =
        "<GSpherical:CroppedAreaImageWidthPixels>1024</GSpherical:CroppedAreaImageWidthPixels>"
        "<GSpherical:CroppedAreaImageHeightPixels>256</GSpherical:CroppedAreaImageHeightPixels>"
        "<GSpherical:FullPanoWidthPixels>2048</GSpherical:FullPanoWidthPixels>"
        "<GSpherical:FullPanoHeightPixels>1024</GSpherical:FullPanoHeightPixels>"
        "<GSpherical:CroppedAreaLeftPixels>512</GSpherical:CroppedAreaLeftPixels>"
        "<GSpherical:CroppedAreaTopPixels>256</GSpherical:CroppedAreaTopPixels>"
        "<GSpherical:StereoMode>top-bottom</GSpherical:StereoMode>";
    meta::ProjectionBounds bounds{};
    ASSERT_TRUE(meta::boundsFromSphereXml(xml, bounds));
    EXPECT_EQ(bounds, (meta::ProjectionBounds{0x40000000u, 0x80000000u, 0x40000000u, 0x40000000u}));
    EXPECT_EQ(meta::stereoModeFromSphereXml(xml), 1);
    EXPECT_EQ(meta::stereoModeFromSphereXml("<GSpherical:StereoMode>left-right</GSpherical:StereoMode>"), 2);
    EXPECT_EQ(meta::stereoModeFromSphereXml(""), 0);
    // A crop that does not fit, or a missing value, gives no bounds.
    std::string wide = xml;
    wide.replace(wide.find(">512<"), 5, ">1536<");
    EXPECT_FALSE(meta::boundsFromSphereXml(wide, bounds));
    EXPECT_FALSE(meta::boundsFromSphereXml("<GSpherical:FullPanoWidthPixels>2048</GSpherical:FullPanoWidthPixels>", bounds));
}

}  // namespace
