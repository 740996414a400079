#include "video/media_time.h"

#include <gtest/gtest.h>

#include <cmath>

using QVMX::MediaTime;
using QVMX::MediaTimeRange;

TEST(MediaTime, MakeWithSecondsRoundsToTheNearestTickAndSaysSo) {
    const MediaTime exact = MediaTime::makeWithSeconds(1.0, 15360);
    EXPECT_EQ(exact.value, 15360);
    EXPECT_EQ(exact.timescale, 15360);
    EXPECT_EQ(exact.flags, MediaTime::kValid);

    const MediaTime up = MediaTime::makeWithSeconds(0.5 / 600 * 3, 600);  // 1.5 ticks
    EXPECT_EQ(up.value, 2);
    EXPECT_NE(up.flags & MediaTime::kHasBeenRounded, 0u);
    EXPECT_EQ(MediaTime::makeWithSeconds(-1.5 / 600, 600).value, -2);
    EXPECT_EQ(MediaTime::makeWithSeconds(1.0 / 3.0, 30).value, 10);
    // The default end of a range: 4,294,967,295 s in a fine timescale still fits.
    EXPECT_EQ(MediaTime::makeWithSeconds(4294967295.0, 90000).value, 4294967295LL * 90000);
}

TEST(MediaTime, MakeWithSecondsRefusesWhatItCannotHold) {
    EXPECT_FALSE(MediaTime::makeWithSeconds(1.0, 0).isValid());
    EXPECT_FALSE(MediaTime::makeWithSeconds(NAN, 600).isValid());
    EXPECT_TRUE(MediaTime::makeWithSeconds(1e300, 600).isPositiveInfinity());
    EXPECT_TRUE(MediaTime::makeWithSeconds(-1e300, 600).isNegativeInfinity());
    EXPECT_TRUE(std::isnan(MediaTime::invalid().seconds()));
}

TEST(MediaTime, ComparesExactlyAcrossTimescales) {
    EXPECT_EQ(MediaTime::make(1, 30), MediaTime::make(512, 15360));
    EXPECT_LT(MediaTime::make(1001, 30000), MediaTime::make(1, 29));
    // Values whose cross products overflow 64 bits still order correctly.
    const MediaTime big = MediaTime::make(INT64_MAX / 2, 1000000007);
    EXPECT_LT(big, MediaTime::make(INT64_MAX / 2 + 1, 1000000007));
    EXPECT_GT(big, MediaTime::make(INT64_MAX / 2, 1000000009));
    // Invalid sorts first and equals invalid; infinities bound every number.
    EXPECT_EQ(MediaTime::invalid(), MediaTime::invalid());
    EXPECT_LT(MediaTime::invalid(), MediaTime::negativeInfinity());
    EXPECT_LT(MediaTime::negativeInfinity(), MediaTime::make(INT64_MIN, 1));
    EXPECT_GT(MediaTime::positiveInfinity(), MediaTime::make(INT64_MAX, 1));
}

TEST(MediaTime, ArithmeticKeepsExactTimesExact) {
    const MediaTime d = MediaTime::make(48000, 48000) - MediaTime::make(15360, 15360);
    EXPECT_EQ(d.value, 0);
    const MediaTime sum = MediaTime::make(1, 30) + MediaTime::make(1, 25);
    EXPECT_EQ(sum, MediaTime::make(11, 150));
    EXPECT_EQ(sum.flags & MediaTime::kHasBeenRounded, 0u);
    EXPECT_DOUBLE_EQ((MediaTime::make(3, 2) - MediaTime::make(1, 4)).seconds(), 1.25);
    EXPECT_TRUE((MediaTime::make(INT64_MAX, 1) + MediaTime::make(1, 1)).isPositiveInfinity());
    EXPECT_FALSE((MediaTime::invalid() + MediaTime::zero()).isValid());
    EXPECT_TRUE((MediaTime::positiveInfinity() - MediaTime::positiveInfinity()).isIndefinite());
}

TEST(MediaTimeRange, TheInvalidRangeAndValidOnes) {
    EXPECT_FALSE(MediaTimeRange::invalid().isValid());
    const auto range = MediaTimeRange::make(MediaTime::make(1, 1), MediaTime::make(30, 30));
    EXPECT_TRUE(range.isValid());
    EXPECT_EQ(range.end(), MediaTime::make(2, 1));
    EXPECT_FALSE(MediaTimeRange::make(MediaTime::zero(), MediaTime::make(-1, 30)).isValid());
    EXPECT_FALSE(MediaTimeRange::make(MediaTime::invalid(), MediaTime::zero()).isValid());
    EXPECT_TRUE(MediaTimeRange::make(MediaTime::zero(), MediaTime::positiveInfinity()).isValid());
}

TEST(Utility, FullRangeIsOfferedWhereTheSystemNamesItself) {
    EXPECT_TRUE(Utility::isSupporFullRangePixelFormat());
}
