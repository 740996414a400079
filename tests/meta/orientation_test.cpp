// Tilt matrix, tilt-corrected heading and the upside-down decision, against
// values worked out by hand.
//
// Axes: the accelerometer record (x, y, z) becomes (-x, -z, -y) in the
// system's axes, where a level upright camera reads (0, -g, 0). With that
// identity tilt the heading is -atan2(cx, cy) in [0, 360) degrees, in
// hundredths, truncated toward zero and kept to 16 bits.
#include <gtest/gtest.h>

#include <cmath>

#include "meta/accel_sensor_stream.h"

using Stream = AccelSensorStreamEmbed;

namespace {

constexpr double kDeg = 3.14159265358979323846 / 180;

Stream::TAccelSensorInfo systemAxes(int16_t rawX, int16_t rawY, int16_t rawZ) {
    Stream::TAccelSensorInfo info;
    info.x = int16_t(-rawX);
    info.y = int16_t(-rawZ);
    info.z = int16_t(-rawY);
    return info;
}

int16_t heading(int16_t rawX, int16_t rawY, int16_t rawZ, double cx, double cy, double cz) {
    Stream::TAccelSensorInfo info = systemAxes(rawX, rawY, rawZ);
    Stream::Ecompass compass;
    compass.x = float(cx);
    compass.y = float(cy);
    compass.z = float(cz);
    Stream::calcOrientation(info, compass);
    return info.heading;
}

TEST(CalcOrientation, LevelCameraFacingTheFourPointsAndPast327Degrees) {
    // +y forward, +x to the right; the field points north.
    EXPECT_EQ(heading(0, 0, 1000, 0, 1, 0), 0);      // north
    // south: p is +0, so the angle is -atan2(+0, -1) = -180 degrees.
    EXPECT_EQ(heading(0, 0, 1000, 0, -1, 0), -18000);
    // west: 2pi - pi/2 in floats is 4.712389, x 18000 / pi = 26999.998.
    EXPECT_EQ(heading(0, 0, 1000, 1, 0, 0), 26999);
    EXPECT_EQ(heading(0, 0, 1000, 0.5, std::sqrt(0.75), 0), 33000 - 65536);  // 330 degrees in 16 bits
}

TEST(CalcOrientation, PitchedCameraIsCorrected) {
    // Pitch t about x with sin t = 0.6, cos t = 0.8 (raw 600, 800): then
    // p = cx, q = 0.8 cy + 0.6 cz, and the compass (-sin f, 0.8 cos f,
    // 0.6 cos f) reads heading f, here 300 degrees.
    const double f = 300 * kDeg;
    EXPECT_NEAR(heading(0, 600, 800, -std::sin(f), 0.8 * std::cos(f), 0.6 * std::cos(f)), 30000, 1);
}

TEST(CalcOrientation, NoTiltCorrectionWithoutAUsableDirection) {
    // Zero vector and upside down: identity, the compass's own angle.
    EXPECT_EQ(heading(0, 0, 0, 1, 1, 0), 31500);
    EXPECT_EQ(heading(0, 0, -1000, -1, 0, 0), 9000);
    // A NaN compass gives a NaN angle, which truncates to 0 in 16 bits.
    EXPECT_EQ(heading(0, 0, 1000, std::nan(""), 1, 0), 0);
}

TEST(DetectReverse, WeightsOfTiltedSamples) {
    Stream s;
    // 31 and 45 degrees off the vertical (w = 1.94 and 1.41) and a zero
    // sample count for neither.
    s.samples = {{515, 857, 0}, {707, -707, 0}, {0, 0, 1000}, {0, 0, 0}};
    s.detectReverse();
    EXPECT_EQ(s.upWeight + s.downWeight, 0.0f);

    // More weight up than down, whatever the number of samples.
    s.samples = {{0, 1000, 0}, {423, -906, 0}, {423, -906, 0}, {423, -906, 0}};
    s.detectReverse();
    EXPECT_TRUE(s.reversed);
    EXPECT_NEAR(s.downWeight, 3 * std::hypot(423.0, 906.0) / 423, 0.01);  // 25 degrees off
}

}  // namespace
