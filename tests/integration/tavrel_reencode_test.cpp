// tavrel with re-encoding options: size, time range, key frames, codec,
// audio rate and bit rates as ffprobe reads them, the SPS flags as FFmpeg's
// trace_headers reads them, the newest cameras' sensor boxes and spatial
// audio cut to the kept range, and the thumbnail. One run per row:
// re-encoding is slow.
#include <gtest/gtest.h>

#include "box_walk.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::readFile;

struct Reencode {
    const char* name;
    Source source;
    std::string options;
    std::string says;      // a line the run prints
    std::string codec;     // "h264" or "hevc"
    int packets;           // video frames kept, at 30 fps
    int keyInterval;
    std::string sampleRate;
    uint32_t firstSecond;  // of the source kept
};

// KDTB is never cut; KDTC (24-byte records) and KDTD (16-byte records) keep
// the kept frames' records, first, in boxes of their old size.
void expectSensorsKept(const std::string& in, const std::string& out, uint32_t firstFrame, uint32_t frames) {
    const auto src = walkBoxes(in), top = walkBoxes(out);
    const SensorBox gyroIn = readSensorBox(in, src, "KDTB"), gyroOut = readSensorBox(out, top, "KDTB");
    ASSERT_TRUE(gyroOut.found);
    EXPECT_EQ(gyroOut.count, kSensorRecords);
    EXPECT_EQ(gyroOut.records, gyroIn.records);
    for (const auto& [type, recordSize] : {std::pair<std::string, size_t>{"KDTC", 24}, {"KDTD", 16}}) {
        SCOPED_TRACE(type);
        const SensorBox before = readSensorBox(in, src, type), after = readSensorBox(out, top, type);
        ASSERT_TRUE(after.found);
        EXPECT_EQ(after.count, frames);
        EXPECT_EQ(after.size, before.size);
        EXPECT_EQ(after.records.substr(0, frames * recordSize),
                  before.records.substr(firstFrame * recordSize, frames * recordSize));
        EXPECT_EQ(after.records.find_first_not_of('\0', frames * recordSize), std::string::npos);
    }
}

void expectSpatialAudio(const std::string& in, const std::string& out, uint32_t fromSecond, uint32_t seconds) {
    const SpatialBlock before = readSpatialBlock(in, walkBoxes(in)), after = readSpatialBlock(out, walkBoxes(out));
    ASSERT_TRUE(after.found);
    const uint64_t bytesPerSecond = uint64_t(kSpatialRate) * kSpatialSampleSize;
    EXPECT_EQ(after.sampleCount, seconds * kSpatialRate);
    EXPECT_EQ(after.mediaDuration, seconds * kSpatialRate);
    EXPECT_EQ(after.audio, before.audio.substr(fromSecond * bytesPerSecond, seconds * bytesPerSecond));
    ASSERT_FALSE(after.chunkOffsets.empty());
    EXPECT_EQ(after.chunkOffsets.front(), after.audioStart);
    EXPECT_EQ(after.kdt9, std::make_pair(after.start, after.size));
}

class Reencoded : public testing::TestWithParam<Reencode> {};

TEST_P(Reencoded, IsWhatTheOptionsAskAndCleanFullRangeVideo) {
    const Reencode& r = GetParam();
    Workspace work(r.source);
    const auto run = work.convert(r.options);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, r.says)) << run.output;

    // Every output is a 2:1 sphere of 256 x 128, full range, clean to decode,
    // marked as re-encoded, with the key frames and audio rate asked for.
    const Fields video = streamFields(work.output(), "v:0");
    EXPECT_EQ(video.at("codec_name"), r.codec);
    EXPECT_EQ(video.at("width") + "x" + video.at("height"), "256x128");
    EXPECT_EQ(video.at("color_range"), "pc");
    int packets = 0;
    const std::vector<int> keys = keyFrameIndices(work.output(), packets);
    EXPECT_EQ(packets, r.packets);
    std::vector<int> expected;
    for (int i = 0; i < packets; i += r.keyInterval) expected.push_back(i);
    EXPECT_EQ(keys, expected);
    EXPECT_NEAR(durationSeconds(work.output()), r.packets / 30.0, 0.1);
    const Fields audio = streamFields(work.output(), "a:0");
    EXPECT_EQ(audio.at("codec_name"), "aac");
    EXPECT_EQ(audio.at("sample_rate"), r.sampleRate);
    EXPECT_EQ(decodeErrors(work.output()), "");
    EXPECT_EQ(exiftoolValues(work.output(), "-XMP:VideoReEncorded -XMP-GSpherical:ProjectionType"),
              "true\nequirectangular\n");
    expectSourcesCreationTime(work.output());
    if (r.codec == "h264") {
        EXPECT_EQ(video.at("profile"), "Constrained Baseline");
        const SpsFields sps = spsFields(work.output());
        EXPECT_EQ(field(sps, "constraint_set1_flag"), "1");
        EXPECT_EQ(field(sps, "video_full_range_flag"), "1");
    } else {
        EXPECT_EQ(video.at("codec_tag_string"), "hvc1");
        EXPECT_NEAR(std::stod(video.at("bit_rate")), 100000, 50000);
        EXPECT_NEAR(std::stod(audio.at("bit_rate")), 64000, 16000);
    }

    const std::string in = readFile(work.source()), out = readFile(work.output());
    const auto top = walkBoxes(out);
    const Box* moov = findBoxes(top, "moov").at(0);
    const Box* mdat = findBoxes(top, "mdat").at(0);
    // The newest cameras keep their media data first.
    EXPECT_EQ(moov->start < mdat->start, !isNewest(r.source));
    if (isNewest(r.source)) {
        expectSensorsKept(in, out, r.firstSecond * 30, r.packets);
        expectSpatialAudio(in, out, r.firstSecond, r.packets / 30);
    }
    if (contains(r.options, "-thumb:")) expectJpeg(work.file("first.jpg"), "256", "128");
}

INSTANTIATE_TEST_SUITE_P(
    EachKind, Reencoded,
    testing::Values(
        Reencode{"NewestWholeWithThumbnail", Source::Newest, "-vw:256 -ki:10 -thumb:first.jpg",
                 "audio sampleRate: in: 48.000, out: 48.000/48.000\n", "h264", 90, 10, "48000", 0},
        // 1.5 starts at 1, 1.2 ends at 2.
        Reencode{"NewestWholeSeconds", Source::Newest, "-ss:1.5 -to:1.2 -vw:256", "", "h264", 30, 30, "48000", 1},
        // An end beyond the movie is its end; 16:9 comes out 2:1 and spherical.
        Reencode{"WideToTheEnd", Source::Wide, "-to:60 -vw:256", "Appned New GVF-BOX.\n", "h264", 90, 30, "48000", 0},
        // Audio below 44.1 kHz is resampled.
        Reencode{"LowRateHevc", Source::LowRate, "-h265 -ki:15 -vb:100000 -ab:64000",
                 "audio sampleRate: in: 32.000, out: 44.100/44.100\n", "hevc", 90, 15, "44100", 0}),
    [](const auto& p) { return std::string(p.param.name); });

}  // namespace
}  // namespace e2e
