// Frame rates from time-to-sample tables, as the media libraries report them.
#include <gtest/gtest.h>

#include <string>

#include "mp4/frame_rate.h"
#include "tools/builders/box_builder.h"

using MP4::STTS;

TEST(NominalFrameRate, SamplesOverTheWholeDuration) {
    EXPECT_FLOAT_EQ(MP4::nominalFrameRate(30000, {{300, 1001}}), 30000.0f / 1001.0f);
    EXPECT_FLOAT_EQ(MP4::nominalFrameRate(90000, {{89, 3000}, {1, 6000}}), 90.0f * 90000 / (89 * 3000 + 6000));
    // Variable deltas: the mean.
    EXPECT_FLOAT_EQ(MP4::nominalFrameRate(1000, {{10, 40}, {10, 60}}), 20.0f);
    // A scale of 0, or one past a signed field, counts as 1.
    EXPECT_FLOAT_EQ(MP4::nominalFrameRate(0, {{10, 1}}), 1.0f);
    EXPECT_FLOAT_EQ(MP4::nominalFrameRate(0x80000000u, {{4, 2}}), 0.5f);
}

TEST(NominalFrameRate, TablesWithoutDuration) {
    EXPECT_EQ(MP4::nominalFrameRate(30, {}), 0.0f);
    EXPECT_EQ(MP4::nominalFrameRate(30, {{0, 1}}), 30.0f);
    EXPECT_EQ(MP4::nominalFrameRate(30, {{0, 1}, {0, 2}, {0, 3}}), 0.0f);
    EXPECT_EQ(MP4::nominalFrameRate(30, {{5, 0}}), 0.0f);
    // Durations past a signed 64-bit sum, and counts past a signed 32-bit one.
    EXPECT_EQ(MP4::nominalFrameRate(30, {{0xFFFFFFFFu, 0xFFFFFFFFu}, {0xFFFFFFFFu, 0xFFFFFFFFu}}), 0.0f);
    EXPECT_EQ(MP4::nominalFrameRate(30, {{0x80000000u, 1}, {0, 1}, {0, 1}}), 0.0f);
}

namespace {

using builders::be32;
using builders::box;

// tfhd for a track, with a default duration when one is given.
std::string tfhd(uint32_t track, uint32_t duration = 0) {
    return box("tfhd", be32(duration != 0 ? 0x08 : 0) + be32(track) + (duration != 0 ? be32(duration) : ""));
}

MP4::SampleSpan spanOf(const std::string& moof, uint32_t trexDuration = 0) {
    MP4::SampleSpan span;
    MP4::addFragmentSamples(reinterpret_cast<const uint8_t*>(moof.data()), moof.size(), 1, trexDuration, span);
    return span;
}

}  // namespace

TEST(FragmentSamples, EachSampleOrTheDefaults) {
    // Own durations, with sizes beside them and a data offset before them.
    const std::string own = box("trun", be32(0x301) + be32(3) + be32(0) + be32(10) + be32(99) + be32(20) + be32(99) +
                                            be32(30) + be32(99));
    MP4::SampleSpan span = spanOf(box("traf", tfhd(1) + own));
    EXPECT_EQ(span.samples, 3u);
    EXPECT_EQ(span.duration, 60u);
    // The fragment's default, else the track's.
    const std::string plain = box("trun", be32(0) + be32(4));
    span = spanOf(box("traf", tfhd(1, 25) + plain), 50);
    EXPECT_EQ(span.duration, 100u);
    span = spanOf(box("traf", tfhd(1) + plain), 50);
    EXPECT_EQ(span.duration, 200u);
    // Another track's runs, and a run cut short, count for what they hold.
    const std::string cut = box("trun", be32(0x301) + be32(3) + be32(0) + be32(10) + be32(99) + be32(20));
    span = spanOf(box("traf", tfhd(2, 25) + plain) + box("traf", tfhd(1) + cut));
    EXPECT_EQ(span.samples, 1u);
    EXPECT_EQ(span.duration, 10u);
    // With a table that has no samples, the fragments give the rate.
    EXPECT_FLOAT_EQ(MP4::nominalFrameRate(1000, {}, {200, 5}), 25.0f);
}
