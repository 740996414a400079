// What the metadata builder reads from a source movie, and the user data it
// hands the output: maker record patched, thumbnail box refreshed, sensor
// streams cut to the kept frames.
#include <gtest/gtest.h>

#include <cmath>

#include "meta/axis_tilt_stream.h"
#include "meta/media_services.h"
#include "meta/meta_builder.h"
#include "mp4/uuid_box.h"
#include "tools/builders/camera_builders.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

const Bytes kXmpId("\xbe\x7a\xcf\xcb\x97\xa9\x42\xe8\x9c\x71\x99\x94\x91\xe3\xaf\xac", 16);
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

TEST(MetaBuilder, CameraGenerationsAreExactModelTexts) {
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX a10"), 0x00001u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX B"), 0x10001u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX BC"), 0x11001u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX D"), 0x20001u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX d"), 0u);
    EXPECT_EQ(MetaBuilder::camera_version("KORVA PANOX D "), 0u);
    EXPECT_EQ(MetaBuilder::camera_version(""), 0u);
}

TEST(MetaBuilder, TheStitchingSoftwareNamesTheToolOnlyWhenAsked) {
    EXPECT_EQ(MetaBuilder("Tavrel.osx", "2.4.0.2018.01.10", false).stitchingSoftware, "KORVA PANOX::Seamwright");
    EXPECT_EQ(MetaBuilder("Tavrel.osx", "2.4.0.2018.01.10", true).stitchingSoftware,
              "KORVA PANOX::Tavrel.osx 2.4.0.2018.01.10");
    const std::string longName(400, 'n');
    EXPECT_EQ(MetaBuilder(longName.c_str(), "1", true).stitchingSoftware.size(), 255u);
}

TEST(MetaBuilder, ReadsEveryKindOfMetadataFromTheSource) {
    MakerExif exif;
    exif.topBottomCorrection = 0;
    exif.videoStabilization = 3;
    const Bytes axis = axisPayloadV2({.compassIndex = 0, .records = {{1, 2, 3, 4}, {5, 6, 7, 8}}});
    MovieFile m(buildMovie({.moovFirst = false,
                            .udtaChildren = box("@mod", "KORVA PANOX B") + makerBox(exif) +
                                            box("@xyz", "+35.5000+139.2500+012.000/")}) +
                uuidBox(kAxisId, axis));
    ASSERT_TRUE(m.container.appendSphericalVideoXML("<x>  <GSpherical:InitialViewHeadingDegrees>90"
                                                    "</GSpherical:InitialViewHeadingDegrees>\n</x>"));

    MetaBuilder builder("Tavrel.osx", "2.4.0.2018.01.10", false);
    ConsoleCapture console;
    ASSERT_TRUE(builder.readMeta(m.wpath(), true));
    EXPECT_EQ(builder.model, "KORVA PANOX B");
    EXPECT_EQ(builder.creationTime, 100u);
    EXPECT_EQ(builder.projectionType, 1u);
    EXPECT_EQ(builder.topBottomCorrection, 0);
    EXPECT_EQ(builder.videoStabilization, 3);
    EXPECT_EQ(builder.axis, axis);
    EXPECT_NE(builder.sphereXml.find(">90<"), std::string::npos);
    EXPECT_TRUE(builder.gps.latitude.valid);
    EXPECT_NEAR(builder.gps.longitude.value, 139.25, 1e-6);
    // The maker's compass (123.45 as a float, just below) becomes the XMP heading.
    EXPECT_TRUE(builder.gps.compass.valid);
    EXPECT_NE(builder.xmp.find("<exif:GPSImgDirection>1234/10</exif:GPSImgDirection>"), std::string::npos);
    EXPECT_NE(builder.xmp.find("<exif:GPSLatitude>35,30.000000N</exif:GPSLatitude>"), std::string::npos);
    EXPECT_NE(builder.xmp.find("<x:CreatorTool>KORVA PANOX::Tavrel.osx 2.4.0.2018.01.10</x:CreatorTool>"),
              std::string::npos);
    EXPECT_NE(builder.xmp.find("<VideoReEncorded>true</VideoReEncorded>"), std::string::npos);
    EXPECT_EQ(console.text(), "");
}

TEST(MetaBuilder, AnXmpPacketWithAPositionIsKeptAndOneWithoutIsRebuilt) {
    const Bytes located = "<x><exif:GPSLatitude>1,0N</exif:GPSLatitude><exif:GPSLongitude>2,0E</exif:GPSLongitude>"
                          "<exif:GPSImgDirection>900/10</exif:GPSImgDirection></x>";
    MovieFile kept(buildMovie({}) + uuidBox(kXmpId, located));
    MetaBuilder builder("t", "1", false);
    ASSERT_TRUE(builder.readMeta(kept.wpath(), false));
    EXPECT_EQ(builder.xmp, located);

    // Without a position of its own the packet's heading still counts.
    MovieFile rebuilt(buildMovie({}) + uuidBox(kXmpId, "<exif:GPSImgDirection>900/10</exif:GPSImgDirection>"));
    ASSERT_TRUE(builder.readMeta(rebuilt.wpath(), false));
    EXPECT_NE(builder.xmp.find("<exif:GPSImgDirection>900/10</exif:GPSImgDirection>"), std::string::npos);
    EXPECT_NE(builder.xmp.find("<VideoReEncorded>false</VideoReEncorded>"), std::string::npos);
}

TEST(MetaBuilder, BrokenModelAndMakerBoxesAreReportedAndPassedOver) {
    MovieFile m(buildMovie({.udtaChildren = box("@mod") + kmknBox("not a tiff block")}));
    MetaBuilder builder("t", "1", false);
    ConsoleCapture console;
    ASSERT_TRUE(builder.readMeta(m.wpath(), false));
    EXPECT_EQ(builder.model, "");
    EXPECT_EQ(builder.projectionType, 0u);
    EXPECT_NE(console.text().find("Invalid @mod.\n"), std::string::npos);
    EXPECT_FALSE(builder.readMeta(L"/nonexistent/movie.mp4", false));
}

TEST(MetaBuilder, TheTiltStreamDecidesTheZenithCorrection) {
    MetaBuilder builder("t", "1", false);
    AxisTiltStream stream;
    stream.frames.resize(6);
    for (const auto& [index, expected] : {std::pair{-2, 0}, {-1, 1}, {5, -1}}) {
        stream.compassIndex = index;
        builder.attach(stream, ExifParser::VIDEO_STABILIZATION_OFF);
        EXPECT_EQ(builder.topBottomCorrection, expected) << index;
    }
    EXPECT_EQ(builder.videoStabilization, 0);
    EXPECT_EQ(builder.axis.size(), 32u + 6 * 16);
}

TEST(MetaBuilder, TrimmingKeepsTheRequestedRecordsOfTheTiltStream) {
    MetaBuilder builder("t", "1", false);
    builder.trimStream(60, 300);
    EXPECT_TRUE(builder.axis.empty());
    EXPECT_EQ(builder.trimStart, 60u);
    EXPECT_EQ(builder.trimCount, 300u);

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

TEST(MetaBuilder, ASphericalXmlIsMadeForTwoToOnePicturesOnly) {
    struct Case {
        uint16_t width, height;
        uint32_t projection;
        bool inPlace;
        bool spherical;
    } cases[] = {{3840, 1920, 1, true, true},
                 {1920, 1080, 1, true, false},
                 {3840, 1920, 2, false, false},
                 {3840, 1920, 2, true, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height));
        MovieFile m(buildMovie({.width = c.width, .height = c.height}));
        MetaBuilder builder("t", "1", false);
        builder.projectionType = c.projection;
        builder.creationTime = 1234;
        ConsoleCapture console;
        builder.updateSphereXML(m.container, c.inPlace);
        if (c.spherical) {
            EXPECT_EQ(console.text(), "Appned New GVF-BOX.\n");
            ASSERT_EQ(builder.sphereXml.size(), 1000u);
            EXPECT_NE(builder.sphereXml.find("KORVA PANOX::Seamwright"), std::string::npos);
            EXPECT_NE(builder.sphereXml.find("<GSpherical:Timestamp>1234</GSpherical:Timestamp>"),
                      std::string::npos);
            EXPECT_EQ(builder.sphereXml.find_last_not_of(' '), builder.sphereXml.find("</rdf:SphericalVideo>") + 21);
        } else {
            EXPECT_EQ(console.text(), "MP4: Not a spherical video.\n");
            EXPECT_TRUE(builder.sphereXml.empty());
        }
    }
    MovieFile m(buildMovie({}));
    MetaBuilder builder("t", "1", false);
    builder.sphereXml = std::string(1200, 'x');
    builder.updateSphereXML(m.container, true);
    EXPECT_EQ(builder.sphereXml, std::string(1200, 'x'));
}

TEST(MetaBuilder, GivenViewValuesOverlayOrReplaceTheSources) {
    ViewHeading source;
    source.heading = 90;
    source.pitch = 10;
    source.horizontalFOV = 75;
    ViewHeading given;
    given.heading = 180;

    MetaBuilder overlay("t", "1", false);
    overlay.sphereXml = source.toString();
    overlay.attach(given, false);
    ViewHeading now;
    overlay.currentViewHeading(now);
    EXPECT_EQ(now.heading, 180);
    EXPECT_EQ(now.pitch, 10);
    EXPECT_EQ(now.horizontalFOV, 75);
    EXPECT_NE(overlay.sphereXml.find(">180<"), std::string::npos);

    MetaBuilder replace("t", "1", false);
    replace.sphereXml = source.toString();
    replace.attach(ViewHeading(), true);
    replace.currentViewHeading(now);
    EXPECT_TRUE(std::isnan(now.heading) && std::isnan(now.pitch) && std::isnan(now.horizontalFOV));
    EXPECT_EQ(replace.sphereXml.find("InitialView"), std::string::npos);

    // A view given before any XML exists goes into the one made later.
    MovieFile m(buildMovie({.width = 64, .height = 32}));
    MetaBuilder fresh("t", "1", false);
    fresh.attach(given, false);
    fresh.updateSphereXML(m.container, true);
    EXPECT_NE(fresh.sphereXml.find("<GSpherical:InitialViewHeadingDegrees>180<"), std::string::npos);
}

TEST(MetaBuilder, TheCopiedMakerRecordIsMarkedEquirectangularWithTheBuildersZenithValue) {
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
    EXPECT_NE(console.text().find("ProjectionType update failed.\n"), std::string::npos);
    EXPECT_NE(console.text().find("SphereAdjZenith update failed.\n"), std::string::npos);
}

TEST(MetaBuilder, TheThumbnailBoxGetsANewPictureOrBecomesFreeSpace) {
    MetaBuilder builder("t", "1", false);
    {
        ThumbnailService service([](const std::wstring&, ByteArray& out, int width, size_t target) {
            EXPECT_EQ(width, 640);
            EXPECT_EQ(target, 100u);
            out = ByteArray("\xFF\xD8jpeg\xFF\xD9", 8);
            return true;
        });
        const Bytes b = copiedUserData(builder, box("KTHU", Bytes(100, 'x')));
        EXPECT_EQ(b.substr(b.find("KTHU") - 4, 108), be32(108) + "KTHU" + "\xFF\xD8jpeg\xFF\xD9" + Bytes(92, '\0'));
    }
    {
        ThumbnailService service([](const std::wstring&, ByteArray&, int, size_t) { return false; });
        const Bytes b = copiedUserData(builder, box("KTHU", Bytes(100, 'x')));
        EXPECT_EQ(b.find("KTHU"), std::string::npos);
        EXPECT_NE(b.find(be32(108) + "free" + Bytes(100, '\0')), std::string::npos);
    }
}

TEST(MetaBuilder, SensorStreamsAreCutToTheKeptFramesInsideTheirOwnBoxes) {
    const Bytes sensors = gyroBox({{1, 2, 3, 4}, {5, 6, 7, 8}}) + compassBox(std::vector<CompassSample>(900)) +
                          accelBox(accelRecords(900));
    MetaBuilder untouched("t", "1", false);
    EXPECT_NE(copiedUserData(untouched, sensors).find(sensors), std::string::npos);

    MetaBuilder builder("t", "1", false);
    builder.trimStream(60, 300);
    const Bytes b = copiedUserData(builder, sensors);
    const Sensor accel = sensorAt(b, "KDTD");
    EXPECT_EQ(accel.size, 24u + 900 * 16);
    EXPECT_EQ(accel.count, 300u);
    const Bytes expected = accelBox(accelRecords(360)).substr(24 + 60 * 16);
    EXPECT_EQ(accel.records.substr(0, 300 * 16), expected);
    EXPECT_EQ(accel.records.substr(300 * 16), Bytes(600 * 16, '\0'));
    EXPECT_EQ(sensorAt(b, "KDTC").count, 300u);
    EXPECT_NE(b.find(gyroBox({{1, 2, 3, 4}, {5, 6, 7, 8}})), std::string::npos);

    // A range running past the records keeps what there is and zeros the rest;
    // a box too small for the range is left alone.
    MetaBuilder late("t", "1", false);
    late.trimStream(850, 100);
    const Sensor tail = sensorAt(copiedUserData(late, sensors), "KDTD");
    EXPECT_EQ(tail.records.substr(0, 50 * 16), accelBox(accelRecords(900)).substr(24 + 850 * 16));
    EXPECT_EQ(tail.records.substr(50 * 16), Bytes(850 * 16, '\0'));
    MetaBuilder wide("t", "1", false);
    wide.trimStream(0, 900);
    EXPECT_EQ(sensorAt(copiedUserData(wide, sensors), "KDTD").records, accelBox(accelRecords(900)).substr(24));
}

TEST(MetaBuilder, TheNewerLayoutNeedsMediaDataFirst) {
    MovieFile m(buildMovie({.moovFirst = true, .udtaChildren = box("@mod", "KORVA PANOX D")}));
    MetaBuilder builder("t", "1", false);
    ASSERT_TRUE(builder.readMeta(m.wpath(), false));
    ConsoleCapture console;
    EXPECT_FALSE(builder.updateMeta(m.wpath(), nullptr, true));
    EXPECT_EQ(console.text().substr(console.text().rfind("processing")),
              "processing meta    4 40.00/100.00\n");
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

    MP4::Container out;
    ASSERT_TRUE(out.attach(output));
    EXPECT_FALSE(out.isMdatFirst());
    const Bytes b = readFile(source.dir.file("out.mp4"));
    EXPECT_EQ(b.find(box("loci", Bytes(20, '\0'))), std::string::npos);
    EXPECT_NE(b.find("loci"), std::string::npos);
    EXPECT_NE(b.find("\xA9xyz"), std::string::npos);
    EXPECT_NE(b.find(kXmpId), std::string::npos);
    EXPECT_EQ(b.find(kAxisId), b.rfind(kAxisId));
    EXPECT_NE(b.find("<GSpherical:ProjectionType>equirectangular"), std::string::npos);
    EXPECT_EQ(console.text().substr(console.text().rfind("processing")), "processing meta   10 100.00/100.00\n");
}

TEST(MetaBuilder, ASourceWithoutSpatialDataHasNoneToCarry) {
    MovieFile source(buildMovie({.moovFirst = false}), "source.mp4");
    MovieFile out(buildMovie({.moovFirst = false}), "out.mp4");
    MetaBuilder builder("t", "1", false);
    EXPECT_TRUE(builder.copySpatialData(source.container, out.container));
    EXPECT_EQ(out.bytes(), out.original);
}
