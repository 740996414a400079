// Thumbnails: the application-segment stripping and the size search (the
// file form is checked through the command line).
#include "video/thumbnailer.h"

#include <gtest/gtest.h>

#include "movie_fixtures.h"
#include "support/test_files.h"

using videotest::Fixture;
using videotest::LogCapture;

namespace {

ByteArray bytes(std::initializer_list<int> values) {
    ByteArray out;
    for (int v : values) out.append8(static_cast<uint8_t>(v));
    return out;
}

ByteArray segment(int marker, size_t payload) {
    ByteArray out = bytes({0xFF, marker, static_cast<int>((payload + 2) >> 8), static_cast<int>((payload + 2) & 0xFF)});
    for (size_t i = 0; i < payload; ++i) out.append8(static_cast<uint8_t>(i));
    return out;
}

ByteArray join(std::initializer_list<ByteArray> parts) {
    ByteArray out;
    for (const auto& p : parts) out.append(p.data, p.size);
    return out;
}

// Width and height from the first frame header, read independently of the
// encoder; -1 when there is none.
std::pair<int, int> jpegSize(const std::string& jpeg) {
    for (size_t i = 2; i + 9 <= jpeg.size();) {
        if (static_cast<uint8_t>(jpeg[i]) != 0xFF) return {-1, -1};
        const int marker = static_cast<uint8_t>(jpeg[i + 1]);
        const size_t length = (static_cast<uint8_t>(jpeg[i + 2]) << 8) | static_cast<uint8_t>(jpeg[i + 3]);
        if (marker == 0xC0 || marker == 0xC2) {
            return {(static_cast<uint8_t>(jpeg[i + 7]) << 8) | static_cast<uint8_t>(jpeg[i + 8]),
                    (static_cast<uint8_t>(jpeg[i + 5]) << 8) | static_cast<uint8_t>(jpeg[i + 6])};
        }
        i += 2 + length;
    }
    return {-1, -1};
}

}  // namespace

TEST(RemoveAPPX, DropsTheRunOfApplicationSegmentsAndLeavesWhatItCannotTrust) {
    const ByteArray tail = join({segment(0xDB, 67), bytes({0xFF, 0xD9})});
    ByteArray jpeg = join({bytes({0xFF, 0xD8}), segment(0xE0, 14), segment(0xE1, 32), tail});
    const uint64_t before = jpeg.size;
    EXPECT_EQ(Thumbnailer::removeAPPX(jpeg), before - 54);
    EXPECT_EQ(jpeg, join({bytes({0xFF, 0xD8}), tail}));

    ByteArray one = bytes({0xFF});
    EXPECT_EQ(Thumbnailer::removeAPPX(one), 0u);
    // Not after the start marker, not a JPEG, or a segment
    // claiming more than is there: nothing is cut.
    for (const ByteArray& kept : {join({bytes({0xFF, 0xD8}), segment(0xDB, 4), segment(0xE1, 8)}),
                                  bytes({0xFF, 0xD9, 0xFF, 0xE0, 0x00, 0x02}),
                                  join({bytes({0xFF, 0xD8}), bytes({0xFF, 0xE0, 0x01, 0x00}), bytes({1, 2, 3})})}) {
        ByteArray copy = kept;
        EXPECT_EQ(Thumbnailer::removeAPPX(copy), kept.size);
        EXPECT_EQ(copy, kept);
    }
    // Fewer than four bytes after a removed segment: the rest is kept.
    ByteArray shortTail = join({bytes({0xFF, 0xD8}), segment(0xE0, 2), bytes({0xFF, 0xE1, 0x00})});
    EXPECT_EQ(Thumbnailer::removeAPPX(shortTail), 5u);
}

TEST(Thumbnailer, TheBufferFormFitsItsTargetAndTheWidth) {
    testsupport::TempDir dir;
    Fixture f;
    f.width = 1280;
    f.height = 640;
    f.seconds = 0.2;
    f.audio = false;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    Thumbnailer thumbnailer(testsupport::widen(movie.string()));
    LogCapture log;
    ByteArray out;
    ASSERT_TRUE(thumbnailer.saveFrame(out, 640, 30000));
    EXPECT_LE(out.size, 30000u);
    EXPECT_EQ(jpegSize(std::string(out.view())), std::make_pair(640, 320));
    EXPECT_NE(static_cast<uint8_t>(out.data[3]), 0xE0);  // no JFIF segment
    EXPECT_TRUE(log.contains("bool Thumbnailer::saveFrame(ByteArray &, int, size_t): targetSize:30000->" +
                             std::to_string(out.size)))
        << log.text();

    // Nothing fits: the message, false, and the last attempt kept.
    ByteArray none;
    EXPECT_FALSE(thumbnailer.saveFrame(none, 640, 100));
    EXPECT_GT(none.size, 100u);
    EXPECT_TRUE(log.contains("bool Thumbnailer::saveFrame(ByteArray &, int, size_t) failed - targetSize:100"))
        << log.text();
}
