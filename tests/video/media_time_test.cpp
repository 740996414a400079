#include "video/media_time.h"

#include <gtest/gtest.h>

#include <cmath>

using QVMX::MediaTime;
using QVMX::MediaTimeRange;

TEST(MediaTime, MakeWithSecondsRoundsToTheNearestTickOrRefuses) {
    const MediaTime up = MediaTime::makeWithSeconds(0.5 / 600 * 3, 600);  // 1.5 ticks
    EXPECT_EQ(up.value, 2);
    EXPECT_NE(up.flags & MediaTime::kHasBeenRounded, 0u);
    // The default end of a range: 4,294,967,295 s in a fine timescale still fits.
    EXPECT_EQ(MediaTime::makeWithSeconds(4294967295.0, 90000).value, 4294967295LL * 90000);
    EXPECT_FALSE(MediaTime::makeWithSeconds(1.0, 0).isValid());
    EXPECT_FALSE(MediaTime::makeWithSeconds(NAN, 600).isValid());
    EXPECT_TRUE(MediaTime::makeWithSeconds(1e300, 600).isPositiveInfinity());
}

TEST(MediaTime, ComparesAndAddsExactlyAcrossTimescales) {
    // Values whose cross products overflow 64 bits still order correctly.
    const MediaTime big = MediaTime::make(INT64_MAX / 2, 1000000007);
    EXPECT_LT(big, MediaTime::make(INT64_MAX / 2 + 1, 1000000007));
    EXPECT_GT(big, MediaTime::make(INT64_MAX / 2, 1000000009));
    EXPECT_LT(MediaTime::invalid(), MediaTime::negativeInfinity());

    const MediaTime sum = MediaTime::make(1, 30) + MediaTime::make(1, 25);
    EXPECT_EQ(sum, MediaTime::make(11, 150));
    EXPECT_EQ(sum.flags & MediaTime::kHasBeenRounded, 0u);
    EXPECT_TRUE((MediaTime::make(INT64_MAX, 1) + MediaTime::make(1, 1)).isPositiveInfinity());
    EXPECT_TRUE((MediaTime::positiveInfinity() - MediaTime::positiveInfinity()).isIndefinite());
    EXPECT_FALSE(MediaTimeRange::make(MediaTime::zero(), MediaTime::make(-1, 30)).isValid());
    EXPECT_TRUE(MediaTimeRange::make(MediaTime::zero(), MediaTime::positiveInfinity()).isValid());
}
