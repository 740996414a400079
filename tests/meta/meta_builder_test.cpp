// What the metadata builder reads from a source movie, and the user data it
// hands the output: maker record patched, thumbnail box refreshed, sensor
// streams cut to the kept frames; the source is never written.
#include <gtest/gtest.h>

#include "meta/axis_tilt_stream.h"
#include "meta/meta_builder.h"
#include "mp4/container.h"
#include "mp4/uuid_box.h"
#include "tools/builders/camera_builders.h"
#include "tools/builders/spatial_builder.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

const Bytes kAxisId("\x8e\x4e\x1f\x97\x81\xf3\x4d\x59\x97\xb5\xff\x05\xa2\x7c\xdb\x7b", 16);

Bytes makerBox(MakerExif exif = {}) { return kmknBox(makerExifBlock(exif)); }

std::vector<AccelSample> accelRecords(size_t n) {
    std::vector<AccelSample> out;
    for (size_t i = 0; i < n; ++i) out.push_back({int16_t(i), int16_t(-int(i)), 1000, i});
    return out;
}

// Runs the user-data copy of a newest-camera movie into a copy of itself and
// answers the output's bytes.
Bytes copiedUserData(MetaBuilder& builder, const Bytes& udtaChildren) {
    MovieFile source(buildMovie({.moovFirst = false, .udtaChildren = udtaChildren}), "source.mp4");
    MovieFile out(source.original, "out.mp4");
    ByteArray copy;
    EXPECT_TRUE(builder.userDataCopy(source.container, out.container, copy));
    EXPECT_TRUE(out.container.replaceUdta(copy.size, copy));
    EXPECT_FALSE(out.temporaryLeft());
    return out.bytes();
}

}  // namespace

TEST(MetaBuilder, ReadsEveryKindOfMetadataFromTheSourceAndPassesOverBrokenBoxes) {
    const Bytes axis = axisPayloadV2({.compassIndex = 0, .records = {{1, 2, 3, 4}, {5, 6, 7, 8}}});
    MovieFile m(buildMovie({.moovFirst = false,
                            .udtaChildren = box("@mod", "KORVA PANOX B") + makerBox({.videoStabilization = 3}) +
                                            box("@xyz", "+35.5000+139.2500+012.000/")}) +
                uuidBox(kAxisId, axis));
    MetaBuilder builder("Tavrel.osx", "2.4.0.2018.01.10", false);
    ConsoleCapture console;
    ASSERT_TRUE(builder.readMeta(m.wpath(), true));
    EXPECT_EQ(builder.model, "KORVA PANOX B");
    EXPECT_EQ(builder.videoStabilization, 3);
    EXPECT_EQ(builder.axis, axis);
    // The maker's compass (123.45 as a float, just below) becomes the XMP heading.
    EXPECT_NE(builder.xmp.find("<exif:GPSImgDirection>1234/10</exif:GPSImgDirection>"), std::string::npos);
    EXPECT_EQ(console.text(), "");

    MovieFile broken(buildMovie({.udtaChildren = box("@mod") + kmknBox("not a tiff block")}));
    ASSERT_TRUE(builder.readMeta(broken.wpath(), false));
    EXPECT_EQ(builder.model, "");
    EXPECT_NE(console.text().find("Invalid @mod.\n"), std::string::npos);
    EXPECT_FALSE(builder.readMeta(L"/nonexistent/movie.mp4", false));
}

TEST(MetaBuilder, TrimmingTheTiltStreamPadsARangePastItsRecordsWithZeros) {
    MetaBuilder builder("t", "1", false);
    AxisPayload payload;
    for (int i = 0; i < 10; ++i) payload.records.push_back({i, 0, 0, uint32_t(i)});
    // More records asked for than remain: the length counts them all, and
    // what is not there reads zero.
    builder.axis = axisPayloadV2(payload);
    builder.trimStream(8, 5);
    ASSERT_EQ(builder.axis.size(), 32u + 5 * 16);
    EXPECT_EQ(builder.axis.substr(32 + 16, 4), be32(9));
    EXPECT_EQ(builder.axis.substr(32 + 32), Bytes(48, '\0'));

    builder.axis = "short";
    builder.trimStream(0, 1);
    EXPECT_TRUE(builder.axis.empty());
}

TEST(MetaBuilder, TheCopiedMakerRecordIsPatchedInItsOwnBox) {
    MetaBuilder builder("t", "1", false);
    builder.topBottomCorrection = -1;
    ConsoleCapture console;
    const Bytes b = copiedUserData(builder, box("@mod", "KORVA PANOX D") +
                                                makerBox({.projectionType = 2, .topBottomCorrection = 1}));
    EXPECT_NE(b.find(makerBox({.projectionType = 1, .topBottomCorrection = 0xFFFF})), std::string::npos);

    // A block the patchers cannot walk is copied as it is, with a line each.
    const Bytes broken = copiedUserData(builder, kmknBox("garbage, not a maker record"));
    EXPECT_NE(broken.find(kmknBox("garbage, not a maker record")), std::string::npos);
    EXPECT_NE(console.text().find("ProjectionType update failed.\nSphereAdjZenith update failed.\n"),
              std::string::npos);
}

// A range running past the records keeps what there is and zeros the rest,
// inside the box's own size; the gyro box is not cut.
TEST(MetaBuilder, SensorStreamsAreCutToTheKeptFramesInsideTheirOwnBoxes) {
    const Bytes gyro = gyroBox({{1, 2, 3, 4}, {5, 6, 7, 8}});
    MetaBuilder builder("t", "1", false);
    builder.trimStream(850, 100);
    const Bytes b = copiedUserData(builder, gyro + compassBox(std::vector<CompassSample>(900)) +
                                                accelBox(accelRecords(900)));
    std::vector<AccelSample> kept = accelRecords(900);
    kept.erase(kept.begin(), kept.begin() + 850);
    kept.resize(900);
    EXPECT_NE(b.find(accelBox(kept, {.count = 100})), std::string::npos);
    EXPECT_NE(b.find(compassBox(std::vector<CompassSample>(900), {.count = 100})), std::string::npos);
    EXPECT_NE(b.find(gyro), std::string::npos);
}

TEST(MetaBuilder, TheNewerLayoutWithItsMovieBoxFirstIsRefusedAndTheSourceKeepsItsBytes) {
    MovieFile m(buildMovie({.moovFirst = true, .udtaChildren = box("@mod", "KORVA PANOX D")}));
    MetaBuilder builder("t", "1", false);
    ASSERT_TRUE(builder.readMeta(m.wpath(), false));
    ConsoleCapture console;
    EXPECT_FALSE(builder.updateMeta(m.wpath(), m.dir.wfile("out.mp4"), true));
    EXPECT_EQ(m.bytes(), m.original);
}

TEST(MetaBuilder, SpatialDataToTheEndAndPastIt) {
    MetaBuilder builder("t", "1", false);
    // Four seconds of eight-byte samples at 1000 a second.
    MovieFile spatial(spatialMovie({}), "spatial.mp4");
    MP4::Container source;
    ASSERT_TRUE(source.attach(spatial.wpath()));
    for (const unsigned end : {0xFFFFFFFFu, 10u}) {  // the command line's "to the end", and past the audio
        ASSERT_TRUE(builder.readSpatialData(source, 1u, end)) << end;
        EXPECT_EQ(builder.spatialSound.endByte, 32000u);
    }
    ASSERT_TRUE(builder.readSpatialData(source, 1u, 2u));
    EXPECT_EQ(builder.spatialSound.startByte, 8000u);
    EXPECT_EQ(builder.spatialSound.endByte, 16000u);
    EXPECT_FALSE(builder.readSpatialData(source, 5u, 0xFFFFFFFFu));
}
