// What the metadata builder reads from a source movie, and the user data it
// hands the output: maker record patched, thumbnail box refreshed, sensor
// streams cut to the kept frames; the source is never written.
#include <gtest/gtest.h>

#include <cmath>

#include "meta/axis_tilt_stream.h"
#include "meta/media_services.h"
#include "meta/meta_builder.h"
#include "mp4/uuid_box.h"
#include "tools/builders/camera_builders.h"
#include "tools/builders/spatial_builder.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

const Bytes kAxisId("\x8e\x4e\x1f\x97\x81\xf3\x4d\x59\x97\xb5\xff\x05\xa2\x7c\xdb\x7b", 16);

Bytes makerBox(MakerExif exif = {}) { return kmknBox(makerExifBlock(exif)); }

// The record count and the records of a sensor box in a file's bytes.
struct Sensor {
    uint32_t count = 0;
    Bytes records;
    uint64_t size = 0;
};
Sensor sensorAt(const Bytes& b, const std::string& type) {
    const size_t at = b.find(type) - 4;
    Sensor s;
    s.size = uint32_t(uint8_t(b[at])) << 24 | uint32_t(uint8_t(b[at + 1])) << 16 |
             uint32_t(uint8_t(b[at + 2])) << 8 | uint8_t(b[at + 3]);
    for (int i = 0; i < 4; ++i) s.count = s.count << 8 | uint8_t(b[at + 8 + i]);
    s.records = b.substr(at + 24, s.size - 24);
    return s;
}

std::vector<AccelSample> accelRecords(size_t n) {
    std::vector<AccelSample> out;
    for (size_t i = 0; i < n; ++i) out.push_back({int16_t(i), int16_t(-int(i)), 1000, i});
    return out;
}

// Installs a thumbnail service for one test.
struct ThumbnailService {
    explicit ThumbnailService(std::function<bool(const std::wstring&, ByteArray&, int, size_t)> fn) {
        mediaServices().thumbnail = std::move(fn);
    }
    ~ThumbnailService() { mediaServices().thumbnail = nullptr; }
};

// Runs the user-data copy of a newest-camera movie into a copy of itself and
// answers the output's bytes.
Bytes copiedUserData(MetaBuilder& builder, const Bytes& udtaChildren) {
    MovieFile source(buildMovie({.moovFirst = false, .udtaChildren = udtaChildren}), "source.mp4");
    MovieFile out(source.original, "out.mp4");
    EXPECT_TRUE(builder.replaceUdta(source.container, out.container, nullptr));
    EXPECT_FALSE(out.temporaryLeft());
    return out.bytes();
}

}  // namespace

TEST(MetaBuilder, CameraGenerationsAndTheStitchingSoftware) {
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX a10"), 0x00001u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX BC"), 0x11001u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX D"), 0x20001u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX D "), 0u);  // exact texts only
    EXPECT_EQ(MetaBuilder("Tavrel.osx", "2.4", false).stitchingSoftware, "KORVA PANOX::Seamwright");
    EXPECT_EQ(MetaBuilder("Tavrel.osx", "2.4", true).stitchingSoftware, "KORVA PANOX::Tavrel.osx 2.4");
    EXPECT_EQ(MetaBuilder(std::string(400, 'n').c_str(), "1", true).stitchingSoftware.size(), 255u);
}

TEST(MetaBuilder, ReadsEveryKindOfMetadataFromTheSourceAndPassesOverBrokenBoxes) {
    MakerExif exif;
    exif.topBottomCorrection = 0;
    exif.videoStabilization = 3;
    const Bytes axis = axisPayloadV2({.compassIndex = 0, .records = {{1, 2, 3, 4}, {5, 6, 7, 8}}});
    MovieFile m(buildMovie({.moovFirst = false,
                            .udtaChildren = box("@mod", "KORVA PANOX B") + makerBox(exif) +
                                            box("@xyz", "+35.5000+139.2500+012.000/")}) +
                uuidBox(kAxisId, axis));
    MetaBuilder builder("Tavrel.osx", "2.4.0.2018.01.10", false);
    ConsoleCapture console;
    ASSERT_TRUE(builder.readMeta(m.wpath(), true));
    EXPECT_EQ(builder.model, "KORVA PANOX B");
    EXPECT_EQ(builder.creationTime, 100u);
    EXPECT_EQ(builder.projectionType, 1u);
    EXPECT_EQ(builder.topBottomCorrection, 0);
    EXPECT_EQ(builder.videoStabilization, 3);
    EXPECT_EQ(builder.axis, axis);
    EXPECT_NEAR(builder.gps.longitude.value, 139.25, 1e-6);
    // The maker's compass (123.45 as a float, just below) becomes the XMP heading.
    EXPECT_NE(builder.xmp.find("<exif:GPSImgDirection>1234/10</exif:GPSImgDirection>"), std::string::npos);
    EXPECT_NE(builder.xmp.find("<x:CreatorTool>KORVA PANOX::Tavrel.osx 2.4.0.2018.01.10</x:CreatorTool>"),
              std::string::npos);
    EXPECT_NE(builder.xmp.find("<VideoReEncorded>true</VideoReEncorded>"), std::string::npos);
    EXPECT_EQ(console.text(), "");

    MovieFile broken(buildMovie({.udtaChildren = box("@mod") + kmknBox("not a tiff block")}));
    ASSERT_TRUE(builder.readMeta(broken.wpath(), false));
    EXPECT_EQ(builder.model, "");
    EXPECT_EQ(builder.projectionType, 0u);
    EXPECT_NE(console.text().find("Invalid @mod.\n"), std::string::npos);
    EXPECT_FALSE(builder.readMeta(L"/nonexistent/movie.mp4", false));
}

TEST(MetaBuilder, TrimmingTheTiltStreamPadsARangePastItsRecordsWithZeros) {
    MetaBuilder builder("t", "1", false);
    AxisPayload payload;
    for (int i = 0; i < 10; ++i) payload.records.push_back({i, 0, 0, uint32_t(i)});
    builder.axis = axisPayloadV2(payload);
    builder.trimStream(2, 3);
    ASSERT_EQ(builder.axis.size(), 32u + 3 * 16);
    EXPECT_EQ(builder.axis.substr(32, 4), be32(2));

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

TEST(MetaBuilder, ASphericalXmlIsMadeForTwoToOnePicturesOnlyWithTheGivenView) {
    ViewHeading given;
    given.heading = 180;
    for (const auto& [width, spherical] : {std::pair{3840, true}, std::pair{1920, false}}) {
        MovieFile m(buildMovie({.width = uint16_t(width), .height = uint16_t(width / 2 + (spherical ? 0 : 120))}));
        MetaBuilder builder("t", "1", false);
        builder.projectionType = 1;
        builder.creationTime = 1234;
        builder.attach(given, false);  // a view given before any XML goes into the one made
        ConsoleCapture console;
        builder.updateSphereXML(m.container, true);
        if (spherical) {
            EXPECT_EQ(console.text(), "Appned New GVF-BOX.\n");
            ASSERT_EQ(builder.sphereXml.size(), 1000u);
            EXPECT_NE(builder.sphereXml.find("<GSpherical:Timestamp>1234</GSpherical:Timestamp>"), std::string::npos);
            EXPECT_NE(builder.sphereXml.find("<GSpherical:InitialViewHeadingDegrees>180<"), std::string::npos);
        } else {
            EXPECT_EQ(console.text(), "MP4: Not a spherical video.\n");
            EXPECT_TRUE(builder.sphereXml.empty());
        }
    }

    // Given values overlay the source's, or replace them all.
    ViewHeading source;
    source.heading = 90;
    source.pitch = 10;
    for (const bool replace : {false, true}) {
        MetaBuilder builder("t", "1", false);
        builder.sphereXml = source.toString();
        builder.attach(given, replace);
        ViewHeading now;
        builder.currentViewHeading(now);
        EXPECT_EQ(now.heading, 180);
        EXPECT_EQ(std::isnan(now.pitch), replace);
    }
}

TEST(MetaBuilder, TheCopiedMakerRecordIsPatchedInItsOwnBox) {
    MakerExif exif;
    exif.projectionType = 2;
    exif.topBottomCorrection = 1;
    MetaBuilder builder("t", "1", false);
    builder.topBottomCorrection = -1;
    ConsoleCapture console;
    const Bytes b = copiedUserData(builder, box("@mod", "KORVA PANOX D") + makerBox(exif));
    const Bytes block = b.substr(b.find("KMKN") + 4, makerExifBlock(exif).size());
    ExifParser parser;
    ExifParser::PANOX record;
    parser.attachKMKN(reinterpret_cast<const unsigned char*>(block.data()), block.size());
    parser.readPNAOX(record);
    EXPECT_EQ(record.projectionType, 1u);
    EXPECT_EQ(record.topBottomCorrection, 0xFFFFu);
    EXPECT_EQ(console.text().find("update failed"), std::string::npos);

    // A block the patchers cannot walk is copied as it is, with a line each.
    const Bytes broken = copiedUserData(builder, kmknBox("garbage, not a maker record"));
    EXPECT_NE(broken.find("garbage, not a maker record"), std::string::npos);
    EXPECT_NE(console.text().find("ProjectionType update failed.\nSphereAdjZenith update failed.\n"),
              std::string::npos);
}

TEST(MetaBuilder, TheThumbnailBoxGetsANewPictureOrBecomesFreeSpace) {
    MetaBuilder builder("t", "1", false);
    for (const bool made : {true, false}) {
        ThumbnailService service([made](const std::wstring&, ByteArray& out, int width, size_t target) {
            EXPECT_EQ(width, 640);
            EXPECT_EQ(target, 100u);
            out = ByteArray("\xFF\xD8jpeg\xFF\xD9", 8);
            return made;
        });
        const Bytes b = copiedUserData(builder, box("KTHU", Bytes(100, 'x')));
        EXPECT_NE(b.find(made ? be32(108) + "KTHU" + "\xFF\xD8jpeg\xFF\xD9" + Bytes(92, '\0')
                              : be32(108) + "free" + Bytes(100, '\0')),
                  std::string::npos);
    }
}

TEST(MetaBuilder, SensorStreamsAreCutToTheKeptFramesInsideTheirOwnBoxes) {
    const Bytes sensors = gyroBox({{1, 2, 3, 4}, {5, 6, 7, 8}}) + compassBox(std::vector<CompassSample>(900)) +
                          accelBox(accelRecords(900));
    MetaBuilder builder("t", "1", false);
    builder.trimStream(60, 300);
    const Bytes b = copiedUserData(builder, sensors);
    const Sensor accel = sensorAt(b, "KDTD");
    EXPECT_EQ(accel.size, 24u + 900 * 16);
    EXPECT_EQ(accel.count, 300u);
    EXPECT_EQ(accel.records.substr(0, 300 * 16), accelBox(accelRecords(360)).substr(24 + 60 * 16));
    EXPECT_EQ(accel.records.substr(300 * 16), Bytes(600 * 16, '\0'));
    EXPECT_EQ(sensorAt(b, "KDTC").count, 300u);
    EXPECT_NE(b.find(gyroBox({{1, 2, 3, 4}, {5, 6, 7, 8}})), std::string::npos);

    // A range running past the records keeps what there is and zeros the rest.
    MetaBuilder late("t", "1", false);
    late.trimStream(850, 100);
    const Sensor tail = sensorAt(copiedUserData(late, sensors), "KDTD");
    EXPECT_EQ(tail.records.substr(0, 50 * 16), accelBox(accelRecords(900)).substr(24 + 850 * 16));
    EXPECT_EQ(tail.records.substr(50 * 16), Bytes(850 * 16, '\0'));
}

TEST(MetaBuilder, AnInPlaceEditOfTheNewerLayoutIsRefusedAndTheSourceKeepsItsBytes) {
    MovieFile m(buildMovie({.moovFirst = true, .udtaChildren = box("@mod", "KORVA PANOX D")}));
    MetaBuilder builder("t", "1", false);
    ASSERT_TRUE(builder.readMeta(m.wpath(), false));
    ConsoleCapture console;
    EXPECT_FALSE(builder.updateMeta(m.wpath(), nullptr, true));
    EXPECT_EQ(m.bytes(), m.original);
}

TEST(MetaBuilder, AnOlderCameraMovieGetsEveryBoxInOneOutputAndTheSourceKeepsItsBytes) {
    const Bytes axis = axisPayloadV2({.compassIndex = 0, .records = {{1, 2, 3, 4}}});
    MovieFile source(buildMovie({.moovFirst = false,
                                 .udtaChildren = box("@mod", "KORVA PANOX B") + makerBox() +
                                                 box("@xyz", "+35.5000+139.2500/") + box("loci", Bytes(20, '\0'))}) +
                         uuidBox(kAxisId, axis),
                     "source.mp4");
    const std::wstring output = source.dir.wfile("out.mp4");
    MetaBuilder builder("Tavrel.osx", "2.4.0.2018.01.10", false);
    ASSERT_TRUE(builder.readMeta(source.wpath(), false));
    ConsoleCapture console;
    ASSERT_TRUE(builder.updateMeta(source.wpath(), &output, true));
    EXPECT_EQ(source.bytes(), source.original);
    EXPECT_FALSE(source.temporaryLeft());

    const Bytes b = readFile(source.dir.file("out.mp4"));
    EXPECT_EQ(b.find(box("loci", Bytes(20, '\0'))), std::string::npos);  // rewritten
    EXPECT_NE(b.find("\xA9xyz"), std::string::npos);
    EXPECT_EQ(b.find(kAxisId), b.rfind(kAxisId));
    EXPECT_NE(b.find("<GSpherical:ProjectionType>equirectangular"), std::string::npos);
    EXPECT_EQ(console.text().substr(console.text().rfind("processing")), "processing meta   10 100.00/100.00\n");
}

TEST(MetaBuilder, SpatialDataToTheEndAndPastIt) {
    MovieFile none(buildMovie({.moovFirst = false}), "source.mp4");
    MovieFile out(buildMovie({.moovFirst = false}), "out.mp4");
    MetaBuilder builder("t", "1", false);
    EXPECT_TRUE(builder.copySpatialData(none.container, out.container));
    EXPECT_EQ(out.bytes(), out.original);

    // Four seconds of eight-byte samples at 1000 a second.
    MovieFile spatial(spatialMovie({}), "spatial.mp4");
    for (const unsigned end : {0xFFFFFFFFu, 10u}) {  // the command line's "to the end", and past the audio
        ASSERT_TRUE(builder.readSpatialData(spatial.wpath(), 1u, end)) << end;
        EXPECT_EQ(builder.spatialSound.startByte, 8000u);
        EXPECT_EQ(builder.spatialSound.endByte, 32000u);
    }
    ASSERT_TRUE(builder.readSpatialData(spatial.wpath(), 1u, 2u));
    EXPECT_EQ(builder.spatialSound.endByte, 16000u);
    EXPECT_FALSE(builder.readSpatialData(spatial.wpath(), 5u, 0xFFFFFFFFu));
}
