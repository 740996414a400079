// Loading the sensor boxes from a movie: byte orders, short boxes, counts
// that lie, and the accelerometer/compass pairing of loadZ83.
#include <gtest/gtest.h>

#include "foundation/notices.h"
#include "meta/accel_sensor_stream.h"
#include "mp4/container.h"
#include "tools/builders/camera_builders.h"
#include "support/test_files.h"

using namespace testsupport;
using namespace builders;
using Stream = AccelSensorStreamEmbed;

namespace {

struct Movie {
    TempDir dir;
    MP4::Container container;
    explicit Movie(const Bytes& udtaChildren, bool moovFirst = true, size_t cutFromEnd = 0) {
        MovieShape shape;
        shape.moovFirst = moovFirst;
        shape.udtaChildren = udtaChildren;
        const Bytes bytes = buildMovie(shape);
        writeFile(dir.file("m.mp4"), bytes.substr(0, bytes.size() - cutFromEnd));
        EXPECT_TRUE(container.attach(dir.wfile("m.mp4")));
    }
    std::vector<Stream::TopBottomCorrection> accel(unsigned short& value) {
        std::vector<Stream::TopBottomCorrection> out;
        (void)Stream::loadZ83_KDTD(container, out, value);
        return out;
    }
};

const std::vector<CompassSample> kCompass = {{1.5f, -2.25f, 3e6f, 0x0102030405060708ull}, {0, 1, -1, 33}};
const std::vector<AccelSample> kAccel = {{-1, 2, -32768, 0x0102030405060708ull}, {0, 0, 1000, 33}};
const std::vector<GyroSample> kGyro = {{0xDEADBEEF, 1, 0x80000000u, 7}};

TEST(SensorLoad, BothByteOrdersGiveTheSameRecordsAndEveryBoxIsAppended) {
    for (const ByteOrder order : {ByteOrder::Big, ByteOrder::Little}) {
        const SensorOptions options{order, 0x0B0A, {}, 0xEE};
        Movie m(gyroBox(kGyro, options) + compassBox(kCompass, options) + accelBox(kAccel, options) +
                accelBox({kAccel[0]}, {order, 2}));
        std::vector<Stream::Ecompass> compass;
        unsigned short value = 0;
        EXPECT_TRUE(Stream::loadZ83_KDTC(m.container, compass, value));
        ASSERT_EQ(compass.size(), 2u);
        EXPECT_TRUE(value == 0x0B0A && compass[0].y == -2.25f && compass[0].t == 0x0102030405060708ull);
        const auto accel = m.accel(value);
        ASSERT_EQ(accel.size(), 3u);
        EXPECT_EQ(value, 2);  // the last box's value wins
        EXPECT_EQ(accel[0].z, -32768);
        std::vector<Stream::Gyro> gyro;
        EXPECT_TRUE(Stream::loadZ83_KDTB(m.container, gyro, value));
        EXPECT_EQ(gyro.at(0).z, 0x80000000u);
    }
}

TEST(SensorLoad, ShortBoxesAndCountsBeyondTheBox) {
    const Bytes shortBox = box("KDTC", Bytes(15, '\0'));  // 23 bytes
    Movie m(shortBox + compassBox(kCompass) + shortBox);
    ConsoleCapture console;
    std::vector<Stream::Ecompass> out;
    unsigned short value = 9;
    const QVMX::Status loaded = Stream::loadZ83_KDTC(m.container, out, value);
    ASSERT_FALSE(loaded);
    EXPECT_EQ(loaded.failure().text(), L"KDTC: Not enough length. except less than 24, but 23.");
    EXPECT_EQ(console.text(), "");
    EXPECT_EQ(out.size(), 2u);  // the next box is still read

    for (const uint32_t claimed : {3u, 0xFFFFFFFFu}) {
        // The next udta child's bytes must not be taken for records.
        Movie lying(accelBox(kAccel, {ByteOrder::Big, 0, claimed}) + box("free", Bytes(64, '\x7F')));
        EXPECT_EQ(lying.accel(value).size(), 2u) << claimed;
    }
    // moov (and the box) last, the file cut inside the second record.
    EXPECT_EQ(Movie(accelBox(kAccel), false, 10).accel(value).size(), 1u);
}

TEST(LoadZ83, PairsAccelerometerAndCompassInTheSystemAxes) {
    Movie m(compassBox(kCompass, {ByteOrder::Little}) + accelBox(kAccel));
    Stream s;
    ASSERT_TRUE(s.loadZ83(m.container, 4));
    EXPECT_EQ(s.framesPerSample, 7);
    ASSERT_EQ(s.samples.size(), 2u);
    // (x, y, z) -> (-x, -z, -y); -(-32768) wraps to -32768.
    EXPECT_EQ(std::tuple(s.samples[0].x, s.samples[0].y, s.samples[0].z), std::tuple(1, -32768, -2));
    EXPECT_FALSE(s.reversed);
}

TEST(LoadZ83, CountsMustMatch) {
    Movie m(compassBox(std::vector<CompassSample>(16)) + accelBox(std::vector<AccelSample>(15)));
    Stream s;
    s.samples.resize(3);
    const QVMX::Status loaded = s.loadZ83(m.container, 1);
    ASSERT_FALSE(loaded);
    EXPECT_EQ(loaded.failure().where, L"KDTC/KDTD");
    EXPECT_TRUE(s.samples.empty());

    // A compass box too short to read is named rather than the counts.
    Movie cut(box("KDTC", Bytes(15, '\0')) + accelBox(kAccel));
    const QVMX::Status cutLoaded = s.loadZ83(cut.container, 1);
    ASSERT_FALSE(cutLoaded);
    EXPECT_EQ(cutLoaded.failure().where, L"KDTC");
}

}  // namespace
