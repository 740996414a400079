// The kept range counted from the first frame, and the start timecode moved with it.
#include "video/trim_range.h"

#include <gtest/gtest.h>

#include "video/timecode_text.h"

using QVMX::MediaTime;
using QVMX::trimRange;

TEST(TrimRange, SecondsCountFromTheFirstFrameAndStopAtTheEndOfTheVideo) {
    const MediaTime first = MediaTime::make(10 * 90000 + 3000, 90000);
    const MediaTime length = MediaTime::make(17 * 600 + 80, 600);

    auto r = trimRange(first, length, 1, 3);
    EXPECT_EQ(r.start, first + MediaTime::make(1, 1));
    EXPECT_EQ(r.end, first + MediaTime::make(3, 1));
    EXPECT_FALSE(r.holdsNoFrame());

    // Past the video's end: the end of the video; no end asked: the same.
    EXPECT_EQ(trimRange(first, length, 0, 60).end, first + length);
    EXPECT_EQ(trimRange(first, length, 0, std::nullopt).end, first + length);
    // Unknown length and no end: no limit.
    EXPECT_FALSE(trimRange(first, MediaTime::invalid(), 0, std::nullopt).end.isValid());

    EXPECT_TRUE(trimRange(first, length, 5, 2).holdsNoFrame());
    EXPECT_TRUE(trimRange(first, length, 2, 2).holdsNoFrame());
    EXPECT_TRUE(trimRange(first, length, 18, std::nullopt).holdsNoFrame());
    EXPECT_FALSE(trimRange(first, length, 17, std::nullopt).holdsNoFrame());
    EXPECT_FALSE(trimRange(first, MediaTime::invalid(), 1000, std::nullopt).holdsNoFrame());
}

TEST(TrimRange, TheStartTimecodeMovesWithTheStart) {
    EXPECT_EQ(QVMX::advanceTimecode("11:12:47:22", 30.0, 3.0), "11:12:50:22");
    // 2 s at 29.97 is 60 frames, counted without drops.
    EXPECT_EQ(QVMX::advanceTimecode("11:12:47:22", 30000.0 / 1001.0, 2.0), "11:12:49:22");
    EXPECT_EQ(QVMX::advanceTimecode("23:59:59:29", 30.0, 1.0), "00:00:00:29");
    EXPECT_EQ(QVMX::advanceTimecode("11:12:47:22", 30.0, 0.0), "11:12:47:22");
    EXPECT_EQ(QVMX::advanceTimecode("not a timecode", 30.0, 1.0), "not a timecode");
    EXPECT_EQ(QVMX::advanceTimecode("", 30.0, 1.0), "");
}
