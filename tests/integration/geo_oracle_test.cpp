// The location and view texts as an independent reader (exiftool) sees
// them, and as tavrel-dump prints them.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "geo/gps_info.h"
#include "geo/view_heading.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "support/run_command.h"
#include "support/test_files.h"

namespace {

using namespace testsupport;
using namespace builders;

const Bytes kFtyp = box("ftyp", Bytes("isom") + be32(0x200) + "isom");

// A movie whose video track holds trackBox, with an optional udta.
Bytes movieWith(const Bytes& trackBox, const Bytes& udta = {}) {
    return kFtyp + box("moov", mvhd(0, 1, 1000, 0) + container("trak", {tkhd(0, 1, 64, 32), trackBox}) + udta);
}

Bytes bytesOf(const MP4::UUID& box) { return Bytes(box.to_byteArray().view()); }

std::string run(const std::string& command) {
    const auto result = runCommand(command);
    EXPECT_EQ(result.status, 0) << result.output;
    return result.output;
}

TEST(GeoOracle, ExiftoolReadsTheXmpPositionAltitudeAndHeading) {
    TempDir dir;
    GPSInfo gps;
    gps.attachRXYZ("-33.8675-070.5000-005.500/");
    gps.attachCompass(123.46);
    const std::string xmp = gps.to_XMP_string("Tavrel", true);
    writeFile(dir.file("p.xmp"), xmp);
    writeFile(dir.file("p.mp4"), kFtyp + box("moov", mvhd(0, 1, 1000, 0)) + bytesOf(MP4::XMP(xmp)));
    // 33 deg 52.05' S, 70 deg 30' W, 5.5 m below sea level, heading 123.5.
    const std::vector<double> expected = {-33.8675, -70.5, -5.5, 123.5};
    for (const char* name : {"p.xmp", "p.mp4"}) {
        std::istringstream lines(run("exiftool -n -s3 -XMP-exif:GPSLatitude -XMP-exif:GPSLongitude "
                                     "-Composite:GPSAltitude -XMP-exif:GPSImgDirection " +
                                     shellQuote(dir.file(name).string())));
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
    view.cameraDolly = 0.5f;
    writeFile(dir.file("v.mp4"), movieWith(bytesOf(MP4::SphericalXML(view.toString()))));
    EXPECT_EQ(run("exiftool -n -s3 -XMP-GSpherical:ProjectionType -XMP-GSpherical:StitchingSoftware "
                  "-XMP-GSpherical:InitialViewHeadingDegrees -XMP-GSpherical:InitialViewPitchDegrees "
                  "-XMP-GSpherical:InitialCameraDolly " +
                  shellQuote(dir.file("v.mp4").string())),
              "equirectangular\nPANOX\n270\n-15\n0.500000\n");
}

TEST(GeoOracle, TavrelDumpPrintsLocationAndViewAfterTheTreeOnlyWhenPresent) {
    TempDir dir;
    const std::string text = "+35.5000+139.2500+012.000/";
    const Bytes udta = container(
        "udta", {box("@xyz", text), box("\xA9xyz", be16(uint16_t(text.size())) + be16(0x15C7) + text)});
    ViewHeading view;
    view.heading = 90;
    view.timestamp = 42;
    writeFile(dir.file("g.mp4"), movieWith(bytesOf(MP4::SphericalXML(view.toString())), udta));
    writeFile(dir.file("plain.mp4"), movieWith(box("free")));
    const std::string dump = "LC_ALL=C.UTF-8 " + shellQuote(binaryDir() + "/tools/tavrel-dump") + " ";

    const std::string out = run(dump + shellQuote(dir.file("g.mp4").string()));
    const std::string decoded =
        "'+35.5000+139.2500+012.000/' latitude=35.500000 longitude=139.250000 altitude=12.000000\n";
    const size_t location = out.find("location: @xyz " + decoded);
    ASSERT_NE(location, std::string::npos) << out;
    EXPECT_LT(out.find("MP4: == 'root'"), location);
    EXPECT_NE(out.find("location: \xC2\xA9xyz " + decoded), std::string::npos) << out;
    EXPECT_NE(out.find("view: heading=90.000000 pitch=none horizontalFOV=none cameraDolly=none "
                       "timestamp=42 stitchingSoftware=''\n"),
              std::string::npos)
        << out;

    const std::string plain = run(dump + shellQuote(dir.file("plain.mp4").string()));
    EXPECT_EQ(plain.find("location:"), std::string::npos);
    EXPECT_EQ(plain.find("view:"), std::string::npos);
}

}  // namespace
