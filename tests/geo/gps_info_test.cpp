// The location record: ISO 6709 reading, and the three forms written for
// the output (location string, 16.16 numbers, XMP elements).
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "geo/gps_info.h"

namespace {

struct Position {
    const char* text;
    bool latValid;
    double lat;
    bool lonValid;
    double lon;
    bool altValid;
    double alt;
};

// Expected values worked out by hand: each fraction digit after the first
// weighs 0.100000001490116119 (0.1 as a float) divided by further tens.
//   35.5     = 35 + 5 * 0.100000001490116119            = 35.500000007450581
//   139.25   = 139 + 2 * 0.1000000015 + 5 * 0.0100000002 = 139.250000003725290
//   33.8675  = 33 + 0.80000001192 + 0.06000000089 + 0.00700000010 + 0.00050000001
//            = 33.867500012926757
class Iso6709Text : public testing::TestWithParam<Position> {};

TEST_P(Iso6709Text, ReadsCoordinatesAndAltitudeWithTheirFlags) {
    const Position& p = GetParam();
    GPSInfo gps;
    gps.attachRXYZ(p.text);
    EXPECT_EQ(gps.text, p.text);
    EXPECT_EQ(gps.latitude.valid, p.latValid);
    EXPECT_NEAR(gps.latitude.value, p.lat, 1e-12);
    EXPECT_EQ(gps.longitude.valid, p.lonValid);
    EXPECT_NEAR(gps.longitude.value, p.lon, 1e-12);
    EXPECT_EQ(gps.altitude.valid, p.altValid);
    EXPECT_NEAR(gps.altitude.value, p.alt, 1e-12);
}

INSTANTIATE_TEST_SUITE_P(
    Positions, Iso6709Text,
    testing::Values(
        Position{"+35.5000+139.2500/", true, 35.500000007450581, true, 139.250000003725290, false, 0},
        Position{"+35.5000+139.2500+012.000CRSWGS_84/", true, 35.500000007450581, true,
                 139.250000003725290, true, 12},
        Position{"+35.5000+139.2500+012.000/", true, 35.500000007450581, true, 139.250000003725290,
                 true, 12},
        // The value is kept even though the altitude is not trusted.
        Position{"+35.5000+139.2500+012.000X", true, 35.500000007450581, true, 139.250000003725290,
                 false, 12},
        Position{"-33.8675-070.5/", true, -33.867500012926757, true, -70.500000007450581, false, 0},
        Position{"-12.5-005.5-003.25/", true, -12.500000007450581, true, -5.500000007450581, true,
                 -3.25},
        // Degrees-and-minutes forms are not read.
        Position{"+3530.00+13915.00/", false, 0, false, 0, false, 0},
        Position{"+5+139/", false, 0, true, 139, false, 0},
        Position{"*35.5+139.25/", false, 0, true, 139.250000003725290, false, 0},
        // No terminator anywhere: the coordinates stand, the altitude does not.
        Position{"+35.5+139.25", true, 35.500000007450581, true, 139.250000003725290, false, 0},
        Position{"+35.5", true, 35.500000007450581, false, 0, false, 0},
        Position{"+", false, 0, false, 0, false, 0}, Position{"", false, 0, false, 0, false, 0}));

TEST(Iso6709, TheFloatWeightingIsKeptNotRoundedAway) {
    const char* text = "+35.5";
    const char* cursor = text;
    const auto [valid, value] = from_iso6709(cursor);
    EXPECT_TRUE(valid);
    EXPECT_NE(value, 35.5);
    EXPECT_NEAR(value, 35.500000007, 1e-9);
    EXPECT_EQ(cursor, text + 5);
}

TEST(Iso6709, CursorStopsAfterTheLastDigitAndNeverPassesTheEnd) {
    const char* text = "-139.25/";
    const char* cursor = text;
    from_iso6709(cursor);
    EXPECT_EQ(*cursor, '/');

    const char* empty = "";
    cursor = empty;
    EXPECT_FALSE(from_iso6709(cursor).first);
    EXPECT_EQ(cursor, empty);
    const char* sign = "+";
    cursor = sign;
    EXPECT_FALSE(from_iso6709(cursor).first);
    EXPECT_EQ(*cursor, '\0');
    EXPECT_FALSE(from_iso6709(cursor).first);
    EXPECT_EQ(*cursor, '\0');
}

TEST(Iso6709, NullTextIsAnEmptyPosition) {
    GPSInfo gps;
    gps.attachRXYZ(nullptr);
    EXPECT_FALSE(gps.latitude.valid);
    EXPECT_EQ(gps.text, "");
}

TEST(LocationForms, AbsoluteBase60) {
    EXPECT_EQ((GPSInfo::BaseX{true, 35.5}.toAbsBase60()), "35,30.000000");
    EXPECT_EQ((GPSInfo::BaseX{true, -33.8675}.toAbsBase60()), "33,52.050000");
    EXPECT_EQ((GPSInfo::BaseX{true, 0}.toAbsBase60()), "0,0.000000");
    EXPECT_EQ((GPSInfo::BaseX{true, 179.999}.toAbsBase60()), "179,59.940000");
    EXPECT_LE((GPSInfo::BaseX{true, 1e300}.toAbsBase60()).size(), 79u);
}

TEST(LocationForms, FixedPointRoundsHalfAwayFromZeroAndSaturates) {
    EXPECT_EQ((GPSInfo::BaseX{true, 35.5}.toUINT32Fixnum()), 2326528);
    EXPECT_EQ((GPSInfo::BaseX{true, -139.25}.toUINT32Fixnum()), -9125888);
    // Half a unit (1/131072) rounds away from zero on both sides.
    EXPECT_EQ((GPSInfo::BaseX{true, 1.0 / 131072}.toUINT32Fixnum()), 1);
    EXPECT_EQ((GPSInfo::BaseX{true, -1.0 / 131072}.toUINT32Fixnum()), -1);
    EXPECT_EQ((GPSInfo::BaseX{true, 0.4 / 65536}.toUINT32Fixnum()), 0);
    EXPECT_EQ((GPSInfo::BaseX{true, 1e12}.toUINT32Fixnum()), INT32_MAX);
    EXPECT_EQ((GPSInfo::BaseX{true, -1e12}.toUINT32Fixnum()), INT32_MIN);
    EXPECT_EQ((GPSInfo::BaseX{true, NAN}.toUINT32Fixnum()), 0);
}

TEST(LocationForms, LocationStringNeedsBothCoordinatesAndNeverCarriesAltitude) {
    GPSInfo gps;
    gps.attachRXYZ("+35.5000+139.2500+012.000/");
    EXPECT_EQ(gps.to_CXYZ_string(), "+35.5000+139.2500/");

    gps.latitude = {true, 5.5};
    gps.longitude = {true, -5.25};
    EXPECT_EQ(gps.to_CXYZ_string(), "+5.5000-05.2500/");

    gps.attachRXYZ("+3530.00+13915.00/");
    EXPECT_EQ(gps.to_CXYZ_string(), "");
    gps.attachRXYZ("*35.5+139.25/");
    EXPECT_EQ(gps.to_CXYZ_string(), "");
}

TEST(LocationForms, InitForgetsEverything) {
    GPSInfo gps;
    gps.attachRXYZ("+35.5+139.25+1/");
    gps.attachCompass(10.0);
    gps.init();
    EXPECT_FALSE(gps.latitude.valid || gps.longitude.valid || gps.altitude.valid || gps.compass.valid);
    EXPECT_EQ(gps.latitude.value, 0);
    EXPECT_EQ(gps.text, "");
}

TEST(XmpPart, PositionAltitudeAndHeadingElements) {
    GPSInfo gps;
    gps.latitude = {true, -33.8675};
    gps.longitude = {true, -70.5};
    gps.altitude = {true, -5.5};
    gps.attachCompass(123.46);
    EXPECT_EQ(gps.to_XMP_part(),
              "      <exif:GPSLatitude>33,52.050000S</exif:GPSLatitude>\n"
              "      <exif:GPSLongitude>70,30.000000W</exif:GPSLongitude>\n"
              "      <exif:GPSAltitude>550/100</exif:GPSAltitude>\n"
              "      <exif:GPSAltitudeRef>1</exif:GPSAltitudeRef>\n"
              "      <exif:GPSImgDirection>1235/10</exif:GPSImgDirection>\n"
              "      <exif:GPSImgDirectionRef>T</exif:GPSImgDirectionRef>\n");
}

TEST(XmpPart, TheLatitudeFlagAloneDecidesThePosition) {
    GPSInfo gps;
    gps.attachRXYZ("*35.5+139.25/");
    EXPECT_EQ(gps.to_XMP_part(), "");

    gps.latitude = {true, 35.5};
    gps.longitude = {false, 0};
    EXPECT_EQ(gps.to_XMP_part(),
              "      <exif:GPSLatitude>35,30.000000N</exif:GPSLatitude>\n"
              "      <exif:GPSLongitude>0,0.000000E</exif:GPSLongitude>\n");
}

TEST(XmpPart, AltitudeAboveSeaLevelAndOutOfRangeValues) {
    GPSInfo gps;
    gps.altitude = {true, 12.345};
    EXPECT_NE(gps.to_XMP_part().find("<exif:GPSAltitude>1234/100</exif:GPSAltitude>\n"
                                     "      <exif:GPSAltitudeRef>0<"),
              std::string::npos);
    gps.altitude = {true, NAN};
    EXPECT_NE(gps.to_XMP_part().find(">0/100<"), std::string::npos);
    gps.altitude = {true, 1e300};
    EXPECT_NE(gps.to_XMP_part().find(">4294967295/100<"), std::string::npos);
}

TEST(XmpCompass, ReadsTheRationalHeading) {
    GPSInfo gps;
    gps.attachCompass(std::string("<x><exif:GPSImgDirection>1235/10</exif:GPSImgDirection></x>"));
    EXPECT_TRUE(gps.compass.valid);
    EXPECT_DOUBLE_EQ(gps.compass.value, static_cast<double>(123.5f));

    // 1/3 divided in single precision.
    gps.attachCompass(std::string("<exif:GPSImgDirection>1/3</exif:GPSImgDirection>"));
    EXPECT_EQ(gps.compass.value, static_cast<double>(1.0f / 3.0f));
}

TEST(XmpCompass, UnusableElementsLeaveTheCompassInvalid) {
    for (const char* xmp : {"", "<exif:GPSImgDirection>", "<exif:GPSImgDirection>1235</exif:GPSImgDirection>",
                            "<exif:GPSImgDirection>1235/0</exif:GPSImgDirection>",
                            "<exif:GPSImgDirection>1235/-10</exif:GPSImgDirection>",
                            "<exif:GPSImgDirection>x/10</exif:GPSImgDirection>",
                            " <exif:GPSImgDirectionRef>T</exif:GPSImgDirectionRef>"}) {
        GPSInfo gps;
        gps.attachCompass(90.0);
        gps.attachCompass(std::string(xmp));
        EXPECT_FALSE(gps.compass.valid) << xmp;
    }
}

TEST(XmpPacket, HeaderPartAndTail) {
    GPSInfo gps;
    gps.attachRXYZ("+35.5000+139.2500/");
    const std::string xmp = gps.to_XMP_string("Tavrel 2.4", true);
    EXPECT_EQ(xmp.rfind("<?xpacket begin='\xEF\xBB\xBF' id='W5M0MpCehiHzreSzNTczkc9d'?>\n", 0), 0u);
    EXPECT_NE(xmp.find("      <x:CreatorTool>Tavrel 2.4</x:CreatorTool>\n"
                       "      <exif:GPSLatitude>35,30.000000N</exif:GPSLatitude>\n"),
              std::string::npos);
    const std::string tail =
        "    </rdf:Description>\n  </rdf:RDF>\n  <VideoReEncorded>true</VideoReEncorded>\n"
        "</x:xmpmeta>\n<?xpacket end='w'?>\n";
    ASSERT_GE(xmp.size(), tail.size());
    EXPECT_EQ(xmp.substr(xmp.size() - tail.size()), tail);
    EXPECT_NE(gps.to_XMP_string("t", false).find("<VideoReEncorded>false</VideoReEncorded>"),
              std::string::npos);
}

TEST(XmpPacket, AnOverlongCreatorToolIsCutWithTheHeader) {
    const std::string tool(2000, 'T');
    const std::string xmp = GPSInfo().to_XMP_string(tool.c_str(), false);
    // The header is formatted into 512 bytes; the tail follows it directly.
    EXPECT_EQ(xmp.find("    </rdf:Description>"), 511u);
    EXPECT_NE(GPSInfo().to_XMP_string(nullptr, false).find("<x:CreatorTool></x:CreatorTool>"),
              std::string::npos);
}

}  // namespace
