// The location and view texts as an independent reader (exiftool) sees
// them, and as tavrel-dump prints them.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "geo/gps_info.h"
#include "geo/view_heading.h"
#include "mp4/uuid_box.h"
#include "support/box_builder.h"
#include "support/run_command.h"
#include "support/test_files.h"

namespace {

using namespace testsupport;

std::string exiftool(const std::string& arguments, const std::filesystem::path& file) {
    const auto result = runCommand("exiftool -n -s3 " + arguments + " " + shellQuote(file.string()));
    EXPECT_EQ(result.status, 0) << result.output;
    return result.output;
}

GPSInfo southWestBelowSea() {
    GPSInfo gps;
    gps.attachRXYZ("-33.8675-070.5000-005.500/");
    gps.attachCompass(123.46);
    return gps;
}

// A movie whose video track holds bytes (a built uuid box) and whose moov
// may hold a udta.
Bytes movieWithTrackBox(const Bytes& trackBox, const Bytes& udta = {}) {
    return box("ftyp", Bytes("isom") + be32(0x200) + "isom") +
           box("moov", mvhd(0, 1, 1000, 0) + container("trak", {tkhd(0, 1, 64, 32), trackBox}) + udta);
}

Bytes bytesOf(const MP4::UUID& box) { return Bytes(box.to_byteArray().view()); }

TEST(GeoOracle, ExiftoolReadsTheXmpPositionAltitudeAndHeading) {
    TempDir dir;
    const std::string xmp = southWestBelowSea().to_XMP_string("Tavrel", true);
    writeFile(dir.file("p.xmp"), xmp);
    // The same packet in the movie's top-level XMP box.
    writeFile(dir.file("p.mp4"), box("ftyp", Bytes("isom") + be32(0x200) + "isom") +
                                     box("moov", mvhd(0, 1, 1000, 0)) + bytesOf(MP4::XMP(xmp)));
    // 33 deg 52.05' S, 70 deg 30' W, 5.5 m below sea level, heading 123.5;
    // the minutes carry the float weighting of the source text (52.050001).
    const std::vector<double> expected = {-33.8675, -70.5, -5.5, 123.5};
    for (const char* name : {"p.xmp", "p.mp4"}) {
        std::istringstream lines(exiftool("-XMP-exif:GPSLatitude -XMP-exif:GPSLongitude "
                                          "-Composite:GPSAltitude -XMP-exif:GPSImgDirection",
                                          dir.file(name)));
        std::vector<double> read;
        for (double v; lines >> v;) read.push_back(v);
        ASSERT_EQ(read.size(), expected.size()) << name;
        for (size_t i = 0; i < read.size(); ++i) EXPECT_NEAR(read[i], expected[i], 1e-6) << name << i;
    }
}

TEST(GeoOracle, ExiftoolReadsTheViewFromTheTrackXml) {
    TempDir dir;
    ViewHeading view;
    view.stitchingSoftware = "PANOX";
    view.heading = 270.4f;
    view.pitch = -15;
    view.horizontalFOV = 90;
    view.cameraDolly = 0.5f;
    writeFile(dir.file("v.mp4"), movieWithTrackBox(bytesOf(MP4::SphericalXML(view.toString()))));
    EXPECT_EQ(exiftool("-XMP-GSpherical:ProjectionType -XMP-GSpherical:StitchingSoftware "
                       "-XMP-GSpherical:InitialViewHeadingDegrees "
                       "-XMP-GSpherical:InitialViewPitchDegrees "
                       "-XMP-GSpherical:InitialHorizontalFOVDegrees "
                       "-XMP-GSpherical:InitialCameraDolly",
                       dir.file("v.mp4")),
              "equirectangular\nPANOX\n270\n-15\n90\n0.500000\n");
}

TEST(GeoOracle, TavrelDumpPrintsLocationAndViewAfterTheTree) {
    TempDir dir;
    const std::string text = "+35.5000+139.2500+012.000/";
    const Bytes udta = container("udta", {box("@xyz", text), box("\xA9xyz", be16(uint16_t(text.size())) +
                                                                                be16(0x15C7) + text)});
    ViewHeading view;
    view.heading = 90;
    view.timestamp = 42;
    writeFile(dir.file("g.mp4"), movieWithTrackBox(bytesOf(MP4::SphericalXML(view.toString())), udta));
    const auto result = runCommand("LC_ALL=C.UTF-8 " + shellQuote(binaryDir() + "/tools/tavrel-dump") +
                                   " " + shellQuote(dir.file("g.mp4").string()));
    EXPECT_EQ(result.status, 0);
    const std::string decoded = "'+35.5000+139.2500+012.000/' latitude=35.500000 "
                                "longitude=139.250000 altitude=12.000000\n";
    const size_t tree = result.output.find("MP4: == 'root'");
    const size_t location = result.output.find("location: @xyz " + decoded);
    ASSERT_NE(location, std::string::npos) << result.output;
    EXPECT_LT(tree, location);
    EXPECT_NE(result.output.find("location: \xC2\xA9xyz " + decoded), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("view: heading=90.000000 pitch=none horizontalFOV=none "
                                 "cameraDolly=none timestamp=42 stitchingSoftware=''\n"),
              std::string::npos)
        << result.output;
}

TEST(GeoOracle, TavrelDumpIsQuietWithoutLocationOrView) {
    TempDir dir;
    writeFile(dir.file("plain.mp4"), movieWithTrackBox(box("free")));
    const auto result = runCommand("LC_ALL=C.UTF-8 " + shellQuote(binaryDir() + "/tools/tavrel-dump") +
                                   " " + shellQuote(dir.file("plain.mp4").string()));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output.find("location:"), std::string::npos);
    EXPECT_EQ(result.output.find("view:"), std::string::npos);
}

}  // namespace
