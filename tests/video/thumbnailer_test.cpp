// Thumbnails: the application-segment stripping and the size search.
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

TEST(RemoveAPPX, DropsTheRunOfApplicationSegmentsAfterTheStartMarker) {
    const ByteArray tail = join({segment(0xDB, 67), bytes({0xFF, 0xD9})});
    ByteArray jpeg = join({bytes({0xFF, 0xD8}), segment(0xE0, 14), segment(0xE1, 32), tail});
    const uint64_t before = jpeg.size;
    EXPECT_EQ(Thumbnailer::removeAPPX(jpeg), before - 54);
    EXPECT_EQ(jpeg, join({bytes({0xFF, 0xD8}), tail}));

    // An application segment after another segment stays where it is.
    ByteArray later = join({bytes({0xFF, 0xD8}), segment(0xDB, 4), segment(0xE1, 8)});
    const ByteArray same = later;
    EXPECT_EQ(Thumbnailer::removeAPPX(later), same.size);
    EXPECT_EQ(later, same);
}

TEST(RemoveAPPX, LeavesWhatItCannotTrustAlone) {
    ByteArray empty, one = bytes({0xFF});
    EXPECT_EQ(Thumbnailer::removeAPPX(empty), 0u);
    EXPECT_EQ(Thumbnailer::removeAPPX(one), 0u);
    EXPECT_TRUE(one.empty());

    ByteArray notJpeg = bytes({0xFF, 0xD9, 0xFF, 0xE0, 0x00, 0x02});
    EXPECT_EQ(Thumbnailer::removeAPPX(notJpeg), 6u);

    // A segment claiming more than is there ends the run: nothing is cut.
    ByteArray overlong = join({bytes({0xFF, 0xD8}), bytes({0xFF, 0xE0, 0x01, 0x00}), bytes({1, 2, 3})});
    const ByteArray copy = overlong;
    EXPECT_EQ(Thumbnailer::removeAPPX(overlong), copy.size);
    EXPECT_EQ(overlong, copy);

    // Fewer than four bytes after a removed segment: the rest is kept.
    ByteArray shortTail = join({bytes({0xFF, 0xD8}), segment(0xE0, 2), bytes({0xFF, 0xE1, 0x00})});
    EXPECT_EQ(Thumbnailer::removeAPPX(shortTail), 5u);
    EXPECT_EQ(shortTail, bytes({0xFF, 0xD8, 0xFF, 0xE1, 0x00}));

    // Only application segments: just the start marker is left.
    ByteArray onlyApps = join({bytes({0xFF, 0xD8}), segment(0xEF, 0), segment(0xE5, 3)});
    EXPECT_EQ(Thumbnailer::removeAPPX(onlyApps), 2u);
}

TEST(Thumbnailer, TheBufferFormFitsItsTargetAndTheWidth) {
    testsupport::TempDir dir;
    Fixture f;
    f.width = 1280;
    f.height = 640;
    f.seconds = 0.2;
    f.audioTracks = 0;
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

    // A tighter target needs a lower quality: smaller, still within bounds.
    ByteArray tight;
    ASSERT_TRUE(thumbnailer.saveFrame(tight, 640, out.size - 1));
    EXPECT_LT(tight.size, out.size);

    // Nothing fits: the message, false, and the last attempt kept.
    ByteArray none;
    EXPECT_FALSE(thumbnailer.saveFrame(none, 640, 100));
    EXPECT_GT(none.size, 100u);
    EXPECT_TRUE(log.contains("bool Thumbnailer::saveFrame(ByteArray &, int, size_t) failed - targetSize:100"))
        << log.text();
}

TEST(Thumbnailer, TheFileFormKeepsTheMoviesSizeAndNoFrameMeansFalse) {
    testsupport::TempDir dir;
    Fixture f;
    f.width = 200;
    f.height = 100;
    f.seconds = 0.2;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    Thumbnailer thumbnailer(testsupport::widen(movie.string()));
    ASSERT_TRUE(thumbnailer.saveFrame(dir.wfile("t.jpg")));
    EXPECT_EQ(jpegSize(testsupport::readFile(dir.file("t.jpg"))), std::make_pair(200, 100));
    EXPECT_FALSE(thumbnailer.saveFrame(dir.wfile("missing/t.jpg")));

    testsupport::writeFile(dir.file("text.mp4"), "not a movie");
    Thumbnailer broken(dir.wfile("text.mp4"));
    ByteArray out;
    EXPECT_FALSE(broken.saveFrame(dir.wfile("u.jpg")));
    EXPECT_FALSE(broken.saveFrame(out, 640, 100000));
    EXPECT_FALSE(std::filesystem::exists(dir.file("u.jpg")));
}
