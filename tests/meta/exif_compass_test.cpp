// The compass corrected for a camera on its side, against values worked out
// by hand: with zenith angles (a, b) beyond +-45 degrees the heading is
// 180 - (t - compass) (mod 360, sign of the dividend kept), where
// t = atan2(sin a, -sin b cos a) for b > 45 and atan2(-sin a, sin b cos a) for b < -45.
#include <gtest/gtest.h>

#include <cmath>

#include "exif_test_util.h"

using namespace builders;

namespace {

float headingFor(float zenith0, float zenith1, float compass) {
    ExifParser::PANOX record;
    record.zenithAngles[0] = zenith0;
    record.zenithAngles[1] = zenith1;
    record.compass = compass;
    record.attachCompass();
    return record.heading;
}

TEST(AttachCompass, TheCompassStandsWithinFortyFiveDegreesAndIsTurnedBeyond) {
    for (const float zenith1 : {-45.0f, 0.0f, 45.0f, ExifParser::kNaN}) {
        EXPECT_EQ(headingFor(30, zenith1, 77.5f), 77.5f) << zenith1;
    }
    // sin 30 = 0.5, sin 60 cos 30 = 0.75: t = atan2(0.5, -0.75) = 146.30993 degrees.
    EXPECT_NEAR(headingFor(30, 60, 20), 53.690067f, 1e-4);
    // t = atan2(-0.5, -0.75) = -146.30993 degrees.
    EXPECT_NEAR(headingFor(30, -60, 0), 326.30993f, 1e-4);
    // Just past the limit: sin 45.5 cos 30 = 0.6176930, t = 141.01109 degrees.
    EXPECT_NEAR(headingFor(30, 45.5f, 0), 38.98891f, 1e-3);
    // a = 0 gives t = +-180; the result keeps the sign of its dividend.
    EXPECT_FLOAT_EQ(headingFor(0, -60, 10), 10.0f);  // fmod(370, 360)
    EXPECT_FLOAT_EQ(headingFor(0, 60, -300), -300.0f);
}

}  // namespace
