// The location record: ISO 6709 reading and the forms written for the
// output (location string, 16.16 numbers, XMP elements); the packet
// around them is checked with the metadata builder.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "geo/gps_info.h"

namespace {

struct Position {
    const char* text;
    bool latValid; double lat;
    bool lonValid; double lon;
    bool altValid; double alt;
};

// Worked out by hand: fraction digit k weighs 0.100000001490116119 (0.1 as
// a float) divided by 10^(k-1), so
//   35.5    = 35 + 5 * 0.1000000015                               = 35.500000007450581
//   139.25  = 139 + 2 * 0.1000000015 + 5 * 0.0100000002           = 139.250000003725290
//   33.8675 = 33 + 0.8000000119 + 0.0600000009 + 0.0070000001 + 0.0005000000
//           = 33.867500012926757
TEST(Iso6709, CoordinatesAndAltitudeWithTheirFlags) {
    constexpr double k35_5 = 35.500000007450581, k139_25 = 139.250000003725290;
    const Position cases[] = {
        {"+35.5000+139.2500/", true, k35_5, true, k139_25, false, 0},
        {"+35.5000+139.2500+012.000CRSWGS_84/", true, k35_5, true, k139_25, true, 12},
        // The value stays although it is not trusted.
        {"+35.5000+139.2500+012.000X", true, k35_5, true, k139_25, false, 12},
        {"-33.8675-070.5-003.25/", true, -33.867500012926757, true, -70.500000007450581, true, -3.25},
        // Degrees-and-minutes forms and a bad sign are not read.
        {"+3530.00+13915.00/", false, 0, false, 0, false, 0},
        {"*35.5+139.25/", false, 0, true, k139_25, false, 0},
        // No terminator: the coordinates stand, the altitude does not.
        {"+35.5+139.25", true, k35_5, true, k139_25, false, 0},
        {"", false, 0, false, 0, false, 0}};
    for (const Position& p : cases) {
        SCOPED_TRACE(p.text);
        GPSInfo gps;
        gps.attachRXYZ(p.text);
        EXPECT_EQ(gps.latitude.valid, p.latValid);
        EXPECT_NEAR(gps.latitude.value, p.lat, 1e-12);
        EXPECT_EQ(gps.longitude.valid, p.lonValid);
        EXPECT_NEAR(gps.longitude.value, p.lon, 1e-12);
        EXPECT_EQ(gps.altitude.valid, p.altValid);
        EXPECT_NEAR(gps.altitude.value, p.alt, 1e-12);
    }
}

TEST(LocationForms, Base60AndFixedPoint) {
    EXPECT_LE((GPSInfo::BaseX{true, 1e300}.toAbsBase60()).size(), 79u);

    EXPECT_EQ((GPSInfo::BaseX{true, 35.5}.toUINT32Fixnum()), 2326528);
    // Half a unit (1/131072) rounds away from zero on both sides.
    EXPECT_EQ((GPSInfo::BaseX{true, 1.0 / 131072}.toUINT32Fixnum()), 1);
    EXPECT_EQ((GPSInfo::BaseX{true, -1.0 / 131072}.toUINT32Fixnum()), -1);
    EXPECT_EQ((GPSInfo::BaseX{true, 1e12}.toUINT32Fixnum()), INT32_MAX);
    EXPECT_EQ((GPSInfo::BaseX{true, NAN}.toUINT32Fixnum()), 0);
}

TEST(LocationForms, LocationStringAndXmpElements) {
    GPSInfo gps;
    gps.attachRXYZ("+35.5000+139.2500+012.000/");
    EXPECT_EQ(gps.to_CXYZ_string(), "+35.5000+139.2500/");  // never the altitude
    gps.latitude = {true, -33.8675};
    gps.longitude = {true, -5.25};
    EXPECT_EQ(gps.to_CXYZ_string(), "-33.8675-05.2500/");
    gps.altitude = {true, -5.5};
    gps.attachCompass(123.46);
    EXPECT_EQ(gps.to_XMP_part(),
              "      <exif:GPSLatitude>33,52.050000S</exif:GPSLatitude>\n"
              "      <exif:GPSLongitude>5,15.000000W</exif:GPSLongitude>\n"
              "      <exif:GPSAltitude>550/100</exif:GPSAltitude>\n"
              "      <exif:GPSAltitudeRef>1</exif:GPSAltitudeRef>\n"
              "      <exif:GPSImgDirection>1235/10</exif:GPSImgDirection>\n"
              "      <exif:GPSImgDirectionRef>T</exif:GPSImgDirectionRef>\n");

    // Both coordinates make the location string; the latitude flag alone
    // decides the XMP position.
    gps.attachRXYZ("*35.5+139.25/");
    gps.compass.valid = false;
    EXPECT_EQ(gps.to_CXYZ_string(), "");
    EXPECT_EQ(gps.to_XMP_part(), "");
    gps.latitude = {true, 35.5};
    EXPECT_EQ(gps.to_XMP_part(), "      <exif:GPSLatitude>35,30.000000N</exif:GPSLatitude>\n"
                                 "      <exif:GPSLongitude>139,15.000000E</exif:GPSLongitude>\n");
}

TEST(XmpCompass, ReadsTheRationalHeadingOrNothing) {
    GPSInfo gps;
    gps.attachCompass(std::string("<x><exif:GPSImgDirection>1/3</exif:GPSImgDirection></x>"));
    EXPECT_TRUE(gps.compass.valid);
    EXPECT_EQ(gps.compass.value, static_cast<double>(1.0f / 3.0f));  // divided as floats
    for (const char* xmp : {"", "<exif:GPSImgDirection>1235</exif:GPSImgDirection>",
                            "<exif:GPSImgDirection>1235/0</exif:GPSImgDirection>"}) {
        gps.attachCompass(90.0);
        gps.attachCompass(std::string(xmp));
        EXPECT_FALSE(gps.compass.valid) << xmp;
    }
}

}  // namespace
