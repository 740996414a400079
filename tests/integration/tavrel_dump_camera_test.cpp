// tavrel-dump on camera-like movies: the maker record of each KMKN box and
// the record count and byte order of each sensor box.
#include <gtest/gtest.h>

#include "tools/builders/box_builder.h"
#include "tools/builders/camera_builders.h"
#include "support/run_command.h"
#include "support/test_files.h"

namespace {

using namespace testsupport;
using namespace builders;

std::string dumpOf(const Bytes& udtaChildren) {
    TempDir dir;
    MovieShape shape;
    shape.udtaChildren = udtaChildren;
    writeFile(dir.file("camera.mp4"), buildMovie(shape));
    const auto result = runCommand("LC_ALL=C.UTF-8 " + shellQuote(binaryDir() + "/tools/tavrel-dump") + " " +
                                   shellQuote(dir.file("camera.mp4").string()));
    EXPECT_EQ(result.status, 0) << result.output;
    return result.output;
}

bool has(const std::string& text, const std::string& line) { return text.find(line) != std::string::npos; }

TEST(TavrelDumpCamera, PrintsTheMakerRecordOfEachKmknBox) {
    MakerExif x;
    x.videoStabilization = 3;
    x.zenith = std::pair{std::pair{30, 1}, std::pair{60, 1}};
    x.compass = std::pair{0u, 1u};
    const std::string out = dumpOf(kmknBox(makerExifBlock(x)) + kmknBox(makerNoteBlock()));
    EXPECT_TRUE(has(out, "KMKN:     form=tiff-big-endian model=\"KORVA PANOX D\" software=\"PANOX D 1.20\"\n")) << out;
    EXPECT_TRUE(has(out, "KMKN:     projectionType=1 zenithAngles=30.00,60.00 compass=0.00 heading=33.69\n")) << out;
    EXPECT_TRUE(has(out, "KMKN:     topBottomCorrection=1 videoStabilization=3 stabilizationFlags=1,1\n")) << out;
    // The bare maker note has no IFD0 strings.
    EXPECT_TRUE(has(out, "KMKN:     form=maker-note model=\"\" software=\"\"\n")) << out;
    EXPECT_TRUE(has(out, "KMKN:     topBottomCorrection=1 videoStabilization=-1 stabilizationFlags=0,0\n")) << out;
}

TEST(TavrelDumpCamera, ReadFailuresAreShownAfterWhatWasRead) {
    const std::string out = dumpOf(kmknBox(makerExifBlock(MakerExif{.order = ByteOrder::Little})) +
                                   kmknBox("not a tiff"));
    EXPECT_TRUE(has(out, "KMKN:     form=tiff-little-endian model=\"KORVA PANOX D\"")) << out;
    EXPECT_TRUE(has(out, "KMKN:     stopped: bigEndian reqired.\n")) << out;
    EXPECT_TRUE(has(out, "KMKN:     stopped: Invalid TIFF-ID(0x002A).\n")) << out;
}

TEST(TavrelDumpCamera, PrintsCountAndByteOrderOfEachSensorBox) {
    const std::string out =
        dumpOf(cameraSensorBoxes(3, ByteOrder::Little) +
               accelBox({{0, 0, 1000, 1}}, {ByteOrder::Big, 7, 900}) + box("KDTC", Bytes(15, '\0')));
    EXPECT_TRUE(has(out, " records=3 holds=3 byteOrder=little-endian value=0\n")) << out;
    EXPECT_TRUE(has(out, "KDTD: start=")) << out;
    EXPECT_TRUE(has(out, " records=900 holds=1 byteOrder=big-endian value=7\n")) << out;
    EXPECT_TRUE(has(out, " bytes=23 no header\n")) << out;
}

}  // namespace
