// tavrel with re-encoding options: size, time range, key frames, codecs,
// bit rates and audio rate as ffprobe reads them, the SPS flags as FFmpeg's
// trace_headers reads them, the newest cameras' sensor boxes and spatial
// audio cut to the kept range, and the thumbnail.
#include <gtest/gtest.h>

#include "box_walk.h"
#include "camera_boxes.h"
#include "movie_oracles.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::readFile;

double number(const Fields& fields, const std::string& key) {
    const auto found = fields.find(key);
    return found == fields.end() ? -1.0 : std::stod(found->second);
}

// What every re-encoded H.264 output must be: Constrained Baseline, full
// range in its SPS, clean to decode, marked as re-encoded.
void expectCleanFullRangeH264(const std::filesystem::path& movie) {
    const Fields video = streamFields(movie, "v:0");
    EXPECT_EQ(video.at("codec_name"), "h264");
    EXPECT_EQ(video.at("profile"), "Constrained Baseline");
    EXPECT_EQ(video.at("color_range"), "pc");
    const Fields sps = spsFields(movie);
    EXPECT_EQ(sps.at("constraint_set1_flag"), "1");
    EXPECT_EQ(sps.at("video_full_range_flag"), "1");
    EXPECT_EQ(decodeErrors(movie), "");
    EXPECT_EQ(exiftoolValues(movie, "-XMP:VideoReEncorded"), "true\n");
}

TEST(Reencode, AWidthGivesA2To1PictureWithFullRangeConstrainedBaselineAndTheSourceAudioRate) {
    Workspace work(Source::Plain);
    const auto run = work.convert("-vw:256");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "audio sampleRate: in: 48.000, out: 48.000/48.000\n")) << run.output;
    const Fields video = streamFields(work.output(), "v:0");
    EXPECT_EQ(video.at("width"), "256");
    EXPECT_EQ(video.at("height"), "128");
    EXPECT_EQ(streamFields(work.output(), "a:0").at("sample_rate"), "48000");
    EXPECT_NEAR(durationSeconds(work.output()), 3.0, 0.1);
    expectCleanFullRangeH264(work.output());

    // Movie box first, and the new 2:1 picture is spherical.
    const auto top = walkBoxes(readFile(work.output()));
    const auto moov = findBoxes(top, "moov");
    const auto mdat = findBoxes(top, "mdat");
    ASSERT_EQ(moov.size(), 1u);
    ASSERT_EQ(mdat.size(), 1u);
    EXPECT_LT(moov[0]->start, mdat[0]->start);
    EXPECT_EQ(exiftoolValues(work.output(), "-XMP-GSpherical:ProjectionType"), "equirectangular\n");
    expectSourcesCreationTime(work.output());
}

TEST(Reencode, A16To9SourceComesOut2To1AndSpherical) {
    Workspace work(Source::Wide);
    const auto run = work.convert("-vw:256");
    ASSERT_EQ(run.status, 0) << run.output;
    const Fields video = streamFields(work.output(), "v:0");
    EXPECT_EQ(video.at("width"), "256");
    EXPECT_EQ(video.at("height"), "128");
    EXPECT_TRUE(contains(run.output, "Appned New GVF-BOX.\n")) << run.output;
    EXPECT_EQ(decodeErrors(work.output()), "");
}

TEST(Reencode, WholeSecondStartAndRoundedUpEndKeepOneSecond) {
    Workspace work(Source::Plain);
    // 1.5 starts at 1, 1.2 ends at 2.
    const auto run = work.convert("-ss:1.5 -to:1.2 -vw:256");
    ASSERT_EQ(run.status, 0) << run.output;
    int packets = 0;
    keyFrameIndices(work.output(), packets);
    EXPECT_EQ(packets, 30);
    EXPECT_NEAR(durationSeconds(work.output()), 1.0, 0.1);
    EXPECT_EQ(decodeErrors(work.output()), "");
}

TEST(Reencode, AnEndBeyondTheMovieIsItsEnd) {
    Workspace work(Source::LowRate);
    const auto run = work.convert("-to:60");
    ASSERT_EQ(run.status, 0) << run.output;
    int packets = 0;
    keyFrameIndices(work.output(), packets);
    EXPECT_EQ(packets, 90);
}

TEST(Reencode, AStartAtOrPastTheEndFailsWithoutWritingAnything) {
    for (const std::string options : {"-ss:3", "-ss:5", "-ss:2 -to:1"}) {
        SCOPED_TRACE(options);
        Workspace work(Source::LowRate);
        const auto run = work.convert(options);
        EXPECT_EQ(run.status, 1) << run.output;
        EXPECT_TRUE(contains(run.output, "process(source.mp4, out.mp4) failed.\n")) << run.output;
        EXPECT_FALSE(std::filesystem::exists(work.output()));
    }
}

TEST(Reencode, KeyFramesComeEveryIntervalFrames) {
    Workspace work(Source::LowRate);
    const auto run = work.convert("-ki:10");
    ASSERT_EQ(run.status, 0) << run.output;
    int packets = 0;
    const std::vector<int> keys = keyFrameIndices(work.output(), packets);
    ASSERT_EQ(packets, 90);
    std::vector<int> expected;
    for (int i = 0; i < packets; i += 10) expected.push_back(i);
    EXPECT_EQ(keys, expected);
}

TEST(Reencode, AudioBelow44100IsResampledTo44100) {
    Workspace work(Source::LowRate);
    const auto run = work.convert("-ab:64000");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "audio sampleRate: in: 32.000, out: 44.100/44.100\n")) << run.output;
    const Fields audio = streamFields(work.output(), "a:0");
    EXPECT_EQ(audio.at("codec_name"), "aac");
    EXPECT_EQ(audio.at("sample_rate"), "44100");
    EXPECT_NEAR(number(audio, "bit_rate"), 64000, 16000);
    expectCleanFullRangeH264(work.output());
}

TEST(Reencode, VideoBitRateFollowsTheOption) {
    Workspace work(Source::LowRate);
    ASSERT_EQ(work.run("source.mp4 low.mp4 -vb:100000").status, 0);
    ASSERT_EQ(work.run("source.mp4 high.mp4 -vb:1000000").status, 0);
    const double low = number(streamFields(work.file("low.mp4"), "v:0"), "bit_rate");
    const double high = number(streamFields(work.file("high.mp4"), "v:0"), "bit_rate");
    EXPECT_NEAR(low, 100000, 50000);
    EXPECT_GT(high, 3 * low);
}

TEST(Reencode, H265IsTaggedHvc1AndFullRange) {
    Workspace work(Source::LowRate);
    const auto run = work.convert("-h265 -ki:15");
    ASSERT_EQ(run.status, 0) << run.output;
    const Fields video = streamFields(work.output(), "v:0");
    EXPECT_EQ(video.at("codec_name"), "hevc");
    EXPECT_EQ(video.at("codec_tag_string"), "hvc1");
    EXPECT_EQ(video.at("color_range"), "pc");
    EXPECT_EQ(video.at("width"), "256");
    int packets = 0;
    const std::vector<int> keys = keyFrameIndices(work.output(), packets);
    EXPECT_EQ(packets, 90);
    EXPECT_EQ(keys, (std::vector<int>{0, 15, 30, 45, 60, 75}));
    EXPECT_EQ(decodeErrors(work.output()), "");
    EXPECT_EQ(exiftoolValues(work.output(), "-XMP:VideoReEncorded"), "true\n");
}

// The newest cameras: sensor boxes and spatial audio follow the kept range.
struct Trimmed {
    std::string in, out;
    std::vector<Box> src, top;
};

Trimmed reencodeNewest(const Workspace& work, const std::string& options) {
    const auto run = work.convert(options);
    EXPECT_EQ(run.status, 0) << run.output;
    Trimmed t{readFile(work.source()), readFile(work.output()), {}, {}};
    t.src = walkBoxes(t.in);
    t.top = walkBoxes(t.out);
    return t;
}

void expectSensorsKept(const Trimmed& t, uint32_t firstFrame, uint32_t frames) {
    // KDTB is never cut; KDTC (24-byte records) and KDTD (16-byte records)
    // keep the frames' records, first, in boxes of their old size.
    const SensorBox gyroIn = readSensorBox(t.in, t.src, "KDTB");
    const SensorBox gyroOut = readSensorBox(t.out, t.top, "KDTB");
    ASSERT_TRUE(gyroOut.found);
    EXPECT_EQ(gyroOut.count, kSensorRecords);
    EXPECT_EQ(gyroOut.records, gyroIn.records);
    for (const auto& [type, recordSize] : {std::pair<std::string, size_t>{"KDTC", 24}, {"KDTD", 16}}) {
        SCOPED_TRACE(type);
        const SensorBox before = readSensorBox(t.in, t.src, type);
        const SensorBox after = readSensorBox(t.out, t.top, type);
        ASSERT_TRUE(after.found);
        EXPECT_EQ(after.count, frames);
        EXPECT_EQ(after.size, before.size);
        EXPECT_EQ(after.records.substr(0, frames * recordSize),
                  before.records.substr(firstFrame * recordSize, frames * recordSize));
        EXPECT_EQ(after.records.find_first_not_of('\0', frames * recordSize), std::string::npos);
    }
}

void expectSpatialAudio(const Trimmed& t, uint32_t fromSecond, uint32_t seconds) {
    const SpatialBlock before = readSpatialBlock(t.in, t.src);
    const SpatialBlock after = readSpatialBlock(t.out, t.top);
    ASSERT_TRUE(after.found);
    const uint64_t bytesPerSecond = uint64_t(kSpatialRate) * kSpatialSampleSize;
    EXPECT_EQ(after.sampleCount, seconds * kSpatialRate);
    EXPECT_EQ(after.mediaDuration, seconds * kSpatialRate);
    EXPECT_EQ(after.audio, before.audio.substr(fromSecond * bytesPerSecond, seconds * bytesPerSecond));
    ASSERT_FALSE(after.chunkOffsets.empty());
    EXPECT_EQ(after.chunkOffsets.front(), after.audioStart);
    EXPECT_EQ(kdt9Locator(t.out, t.top), std::make_pair(after.start, after.size));
}

TEST(ReencodeNewest, ATimeRangeCutsTheSensorBoxesAndTheSpatialAudio) {
    Workspace work(Source::Newest);
    const Trimmed t = reencodeNewest(work, "-ss:1 -to:2 -vw:256");
    int packets = 0;
    keyFrameIndices(work.output(), packets);
    ASSERT_EQ(packets, 30);
    expectSensorsKept(t, 30, 30);
    expectSpatialAudio(t, 1, 1);
    // Media data first, as the camera writes it.
    const auto moov = findBoxes(t.top, "moov");
    const auto mdat = findBoxes(t.top, "mdat");
    ASSERT_EQ(moov.size(), 1u);
    ASSERT_EQ(mdat.size(), 1u);
    EXPECT_LT(mdat[0]->start, moov[0]->start);
    expectCleanFullRangeH264(work.output());
}

TEST(ReencodeNewest, WithoutAnEndOrWithOnePastTheMovieTheSpatialAudioRunsToItsEnd) {
    for (const std::string options : {"-ss:1 -vw:256", "-ss:1 -to:60 -vw:256"}) {
        SCOPED_TRACE(options);
        Workspace work(Source::Newest);
        const Trimmed t = reencodeNewest(work, options);
        int packets = 0;
        keyFrameIndices(work.output(), packets);
        ASSERT_EQ(packets, 60);
        expectSensorsKept(t, 30, 60);
        expectSpatialAudio(t, 1, 2);
    }
}

TEST(ReencodeNewest, WithoutATimeRangeTheWholeSpatialBlockGoesOverAndTheThumbnailHasTheOutputSize) {
    Workspace work(Source::Newest);
    const Trimmed t = reencodeNewest(work, "-vw:256 -thumb:first.jpg");
    expectSpatialAudio(t, 0, 3);
    const Fields jpeg = streamFields(work.file("first.jpg"), "v:0");
    EXPECT_EQ(jpeg.at("codec_name"), "mjpeg");
    EXPECT_EQ(jpeg.at("width"), "256");
    EXPECT_EQ(jpeg.at("height"), "128");
    EXPECT_EQ(decodeErrors(work.file("first.jpg")), "");
}

TEST(Thumbnail, TheMetadataPathSavesTheFirstFrameAtTheOutputSize) {
    Workspace work(Source::Plain);
    const auto run = work.convert("-thumb:first.jpg");
    ASSERT_EQ(run.status, 0) << run.output;
    const Fields jpeg = streamFields(work.file("first.jpg"), "v:0");
    EXPECT_EQ(jpeg.at("width"), "512");
    EXPECT_EQ(jpeg.at("height"), "256");
    EXPECT_EQ(decodeErrors(work.file("first.jpg")), "");
}

TEST(Thumbnail, AThumbnailThatCannotBeWrittenDoesNotFailTheRun) {
    Workspace work(Source::Plain);
    const auto run = work.convert("-thumb:missing/first.jpg");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "thumbnailer(missing/first.jpg) failed.\n")) << run.output;
    EXPECT_TRUE(std::filesystem::exists(work.output()));
}

}  // namespace
}  // namespace e2e
