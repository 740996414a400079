// tavrel with re-encoding options: size, time range, key frames, codec,
// audio rate and bit rates as ffprobe reads them, the SPS flags as FFmpeg's
// trace_headers reads them, the newest cameras' sensor boxes and spatial
// audio cut to the kept range, their maker thumbnail, and the thumbnail.
// One run per row: re-encoding is slow.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "box_walk.h"
#include "tavrel_fixture.h"
#include "tools/builders/box_builder.h"

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

// The maker thumbnail is the finished output's first frame read in the
// range the output declares: the bytes the thumbnail tool makes of the
// output, at the start of the box and the rest zero, a 640-wide bound that
// keeps the 256 x 128 picture as it is.
void expectMakerThumbnailOfOutput(const Workspace& work, const std::string& out, const std::vector<Box>& top) {
    const auto kthu = findBoxes(top, "moov.udta.KTHU");
    ASSERT_EQ(kthu.size(), 1u);
    const std::string payload = payloadOf(out, *kthu[0]);
    const auto quoted = [](const std::filesystem::path& p) { return testsupport::shellQuote(p.string()); };
    const auto made = testsupport::runCommand(toolCommand("tavrel-transcode") + " --thumbnail " +
                                              quoted(work.output()) + " " + quoted(work.file("of-output.jpg")) +
                                              " 640 " + std::to_string(payload.size()));
    ASSERT_EQ(made.status, 0) << made.output;
    const std::string jpeg = readFile(work.file("of-output.jpg"));
    EXPECT_TRUE(!jpeg.empty() && payload.compare(0, jpeg.size(), jpeg) == 0)
        << "KTHU does not hold the output's first frame";
    EXPECT_EQ(payload.find_first_not_of('\0', jpeg.size()), std::string::npos);
    expectJpeg(work.file("of-output.jpg"), "256", "128");
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
    // A flat source scaled to 2:1 is not made out to be a sphere.
    const bool flat = r.source == Source::Wide;
    EXPECT_EQ(exiftoolValues(work.output(), "-XMP:VideoReEncorded -XMP-GSpherical:ProjectionType"),
              flat ? "true\n" : "true\nequirectangular\n");
    expectSourcesCreationTime(work.output(), !flat);
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
        expectMakerThumbnailOfOutput(work, out, top);
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
        // An end beyond the movie is its end; 16:9 comes out 2:1 but flat.
        Reencode{"WideToTheEnd", Source::Wide, "-to:60 -vw:256",
                 "warning: the source is a flat 512x288 movie without spherical metadata; its 2:1 re-encode is not "
                 "marked as a 360 movie.\n",
                 "h264", 90, 30, "48000", 0},
        // Audio below 44.1 kHz is resampled.
        Reencode{"LowRateHevc", Source::LowRate, "-h265 -ki:15 -vb:100000 -ab:64000",
                 "audio sampleRate: in: 32.000, out: 44.100/44.100\n", "hevc", 90, 15, "44100", 0}),
    [](const auto& p) { return std::string(p.param.name); });


// Movies from other software, made here with ffmpeg: a range counted from a
// first frame that is not at zero, the further tracks kept and cut, the
// tracks left out named, and the sources refused before anything is written.
using testsupport::runCommand;
using testsupport::shellQuote;

// Writes work's source.mp4 from ffmpeg inputs and output options.
void makeSource(const Workspace& work, const std::string& arguments) {
    const auto r = runCommand("cd " + shellQuote(work.dir().string()) + " && ffmpeg -nostdin -v error -y " + arguments +
                                  " source.mp4",
                              true);
    ASSERT_EQ(r.status, 0) << arguments << "\n" << r.output;
}

struct PacketAt {
    double time;
    int size;
};

std::vector<PacketAt> packetsOf(const std::filesystem::path& movie, const std::string& stream) {
    const auto r = runCommand("ffprobe -v error -select_streams " + stream +
                              " -show_entries packet=pts_time,size -of csv=p=0 " + shellQuote(movie.string()));
    std::vector<PacketAt> packets;
    std::istringstream lines(r.output);
    std::string line;
    while (std::getline(lines, line)) {
        const auto comma = line.find(',');
        if (comma == std::string::npos) continue;
        packets.push_back({std::stod(line.substr(0, comma)), std::stoi(line.substr(comma + 1))});
    }
    return packets;
}

// The times of packets larger than minSize in [from, to), shifted back by from.
std::vector<double> timesIn(const std::vector<PacketAt>& packets, double from, double to, int minSize = 0) {
    std::vector<double> times;
    for (const PacketAt& p : packets) {
        if (p.time >= from - 1e-6 && p.time < to - 1e-6 && p.size > minSize) times.push_back(p.time - from);
    }
    return times;
}

const std::string kTestPicture = "-f lavfi -i testsrc2=size=256x128:rate=30:duration=4 ";

TEST(ReencodeOtherSoftware, TheRangeCountsFromAFirstFrameTenSecondsIn) {
    Workspace work;
    makeSource(work, kTestPicture + "-f lavfi -i sine=sample_rate=48000:duration=4 -c:v libx264 -pix_fmt yuv420p "
                                    "-c:a aac -output_ts_offset 10");
    const std::string before = sha256(work.source());
    const auto run = work.convert("-vw:256 -ss:1 -to:3");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(sha256(work.source()), before);
    int packets = 0;
    keyFrameIndices(work.output(), packets);
    EXPECT_EQ(packets, 60);
    EXPECT_NEAR(durationSeconds(work.output()), 2.0, 0.1);
    // Frame 30 of the source, its second 1, is the output's first.
    EXPECT_EQ(streamFields(work.output(), "v:0").at("start_time"), "0.000000");
    EXPECT_EQ(decodeErrors(work.output()), "");
}

TEST(ReencodeOtherSoftware, FurtherAudioAndTextAreKeptCutToTheRangeAndASecondVideoIsNamed) {
    Workspace work;
    std::ofstream(work.file("cues.srt")) << "1\n00:00:00,200 --> 00:00:00,900\none\n\n"
                                            "2\n00:00:01,500 --> 00:00:02,000\ntwo\n\n"
                                            "3\n00:00:02,500 --> 00:00:03,500\nthree\n\n";
    makeSource(work, kTestPicture +
                         "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=4 "
                         "-f lavfi -i sine=frequency=880:sample_rate=44100:duration=4 -i cues.srt "
                         "-f lavfi -i testsrc=size=64x32:rate=10:duration=4 -map 0 -map 1 -map 2 -map 3 -map 4 "
                         "-c:v libx264 -pix_fmt yuv420p -c:a aac -c:a:1 mp3 -c:s mov_text");
    const std::string before = sha256(work.source());
    const auto run = work.convert("-vw:256 -ss:1 -to:3");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(sha256(work.source()), before);
    EXPECT_TRUE(contains(run.output, "track 5 (avc1, second video) is not kept by a re-encode\n")) << run.output;
    EXPECT_FALSE(contains(run.output, "track 2 (")) << run.output;
    EXPECT_FALSE(contains(run.output, "track 3 (")) << run.output;
    EXPECT_FALSE(contains(run.output, "track 4 (")) << run.output;

    EXPECT_EQ(streamFields(work.output(), "a:0").at("codec_name"), "aac");
    EXPECT_EQ(streamFields(work.output(), "a:1").at("codec_name"), "mp3");
    EXPECT_EQ(streamFields(work.output(), "s:0").at("codec_name"), "mov_text");
    EXPECT_TRUE(packetsOf(work.output(), "v:1").empty());
    // The copied sound is the source's packets of seconds 1 to 3, moved to zero.
    const auto soundIn = timesIn(packetsOf(work.source(), "a:1"), 1.0, 3.0);
    const auto soundOut = timesIn(packetsOf(work.output(), "a:1"), 0.0, 100.0);
    ASSERT_EQ(soundOut.size(), soundIn.size());
    ASSERT_FALSE(soundOut.empty());
    EXPECT_NEAR(soundOut.front(), soundIn.front(), 0.001);
    EXPECT_NEAR(soundOut.back(), soundIn.back(), 0.001);
    // The cues of the range (not the empty samples between them) at their new times.
    EXPECT_EQ(timesIn(packetsOf(work.output(), "s:0"), 0.0, 100.0, 2), (std::vector<double>{0.5, 1.5}));
    EXPECT_EQ(decodeErrors(work.output()), "");
}

struct Refusal {
    const char* name;
    std::string source;  // ffmpeg arguments, or "zeroed" for a movie whose samples are all zero
    std::string options;
    std::string says;
};

class RefusedReencode : public testing::TestWithParam<Refusal> {};

// Every sample byte of the media data made zero: a movie whose video decodes to nothing.
void zeroMediaData(const std::filesystem::path& movie) {
    std::string bytes = testsupport::readFile(movie);
    const Box* mdat = findBoxes(walkBoxes(bytes), "mdat").at(0);
    std::fill(bytes.begin() + static_cast<long>(mdat->start + 8), bytes.begin() + static_cast<long>(mdat->start + mdat->size), '\0');
    std::ofstream(movie, std::ios::binary | std::ios::trunc) << bytes;
}

TEST_P(RefusedReencode, BeforeAnythingIsWritten) {
    const Refusal& r = GetParam();
    Workspace work;
    if (r.source == "zeroed") {
        makeSource(work, kTestPicture + "-c:v libx264 -pix_fmt yuv420p");
        zeroMediaData(work.source());
    } else {
        makeSource(work, r.source);
    }
    const std::string before = sha256(work.source());
    const auto run = work.convert(r.options);
    EXPECT_NE(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "source.mp4: " + r.says + "; nothing was written.\n")) << run.output;
    EXPECT_FALSE(std::filesystem::exists(work.output()));
    EXPECT_EQ(sha256(work.source()), before);
    EXPECT_EQ(contains(run.output, "Unknown codec.\n"), r.source == "zeroed") << run.output;
}

INSTANTIATE_TEST_SUITE_P(
    EachCause, RefusedReencode,
    testing::Values(
        Refusal{"AudioOnly", "-f lavfi -i sine=duration=1 -c:a aac", "-vw:256", "it has no video track"},
        Refusal{"Encrypted",
                kTestPicture + "-c:v libx264 -pix_fmt yuv420p -encryption_scheme cenc-aes-ctr "
                               "-encryption_key 00112233445566778899aabbccddeeff "
                               "-encryption_kid 00112233445566778899aabbccddeeff",
                "-vw:256", "its samples are encrypted"},
        Refusal{"Undecodable", "zeroed", "-vw:256", "its video (h264) cannot be decoded here"},
        Refusal{"StartPastTheEnd", kTestPicture + "-c:v libx264 -pix_fmt yuv420p", "-vw:256 -ss:5 -to:2",
                "the range -ss:5 -to:2 holds no frame"},
        Refusal{"StartAfterTheVideo", kTestPicture + "-c:v libx264 -pix_fmt yuv420p", "-vw:256 -ss:4",
                "the range -ss:4 holds no frame"}),
    [](const auto& p) { return std::string(p.param.name); });


// Gives the first video's sample entry a sphere mapping (equirectangular,
// turned 90 degrees, a sixteenth cropped at the top and bottom) and a
// top-bottom stereo layout; the movie box must come after the media data.
void addSphereMapping(const std::filesystem::path& movie) {
    using namespace builders;
    std::string bytes = testsupport::readFile(movie);
    const auto top = walkBoxes(bytes);
    const Box* stsd = findBoxes(top, "moov.trak.mdia.minf.stbl.stsd").at(0);
    ASSERT_LT(findBoxes(top, "mdat").at(0)->start, findBoxes(top, "moov").at(0)->start);
    const uint64_t entry = stsd->payloadStart() + 8;
    ASSERT_EQ(bytes.substr(entry + 4, 4), "avc1");
    const uint32_t sixteenth = 0x10000000;
    const Bytes added = fullBox("st3d", 0, 0, Bytes(1, '\1')) +
                        box("sv3d", fullBox("svhd", 0, 0, Bytes(1, '\0')) +
                                        box("proj", fullBox("prhd", 0, 0, be32(90u << 16) + be32(0) + be32(0)) +
                                                        fullBox("equi", 0, 0, be32(sixteenth) + be32(sixteenth) + be32(0) + be32(0))));
    auto grow = [&](uint64_t at) {
        const uint32_t size = (uint8_t(bytes[at]) << 24) | (uint8_t(bytes[at + 1]) << 16) | (uint8_t(bytes[at + 2]) << 8) |
                              uint8_t(bytes[at + 3]);
        bytes.replace(at, 4, be32(size + static_cast<uint32_t>(added.size())));
    };
    const uint32_t entrySize = (uint8_t(bytes[entry]) << 24) | (uint8_t(bytes[entry + 1]) << 16) |
                               (uint8_t(bytes[entry + 2]) << 8) | uint8_t(bytes[entry + 3]);
    bytes.insert(entry + entrySize, added);
    grow(entry);
    for (const char* path : {"moov", "moov.trak", "moov.trak.mdia", "moov.trak.mdia.minf", "moov.trak.mdia.minf.stbl",
                             "moov.trak.mdia.minf.stbl.stsd"}) {
        grow(findBoxes(top, path).at(0)->start);
    }
    testsupport::writeFile(movie, bytes);
}

TEST(ReencodeOtherSoftware, TheSphereMappingAndStereoLayoutOfTheSourceAreCarried) {
    Workspace work;
    makeSource(work, "-f lavfi -i testsrc2=size=512x256:rate=30:duration=2 -c:v libx264 -pix_fmt yuv420p");
    addSphereMapping(work.source());
    const auto read = runCommand("ffprobe -v error -show_entries stream_side_data -of flat " +
                                 shellQuote(work.source().string()));
    ASSERT_TRUE(contains(read.output, "yaw=90")) << "ffmpeg does not read the made mapping:\n" << read.output;

    const auto run = work.convert("-vw:256 -to:1");
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string side = runCommand("ffprobe -v error -select_streams v:0 -show_entries stream_side_data -of flat " +
                                        shellQuote(work.output().string())).output;
    EXPECT_TRUE(contains(side, "side_data_type=\"Spherical Mapping\"")) << side;
    EXPECT_TRUE(contains(side, "yaw=90")) << side;
    EXPECT_TRUE(contains(side, "type=\"top and bottom\"")) << side;
    // The crop is kept as the same fractions; ffprobe turns them into rows
    // of the picture it reads (19 and 17 for the source's 256 rows).
    EXPECT_TRUE(contains(read.output, "bound_top=19")) << read.output;
    EXPECT_TRUE(contains(read.output, "bound_bottom=17")) << read.output;
    EXPECT_TRUE(contains(side, "projection=\"tiled equirectangular\"")) << side;
    EXPECT_TRUE(contains(side, "bound_top=10")) << side;
    EXPECT_TRUE(contains(side, "bound_bottom=8")) << side;
}


TEST(ReencodeOtherSoftware, FurtherAudioTheOutputCannotHoldIsEncodedOnItsOwn) {
    Workspace work;
    makeSource(work, kTestPicture +
                         "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=4 "
                         "-f lavfi -i sine=frequency=880:sample_rate=8000:duration=4 -map 0 -map 1 -map 2 "
                         "-c:v libx264 -pix_fmt yuv420p -c:a aac -c:a:1 pcm_s16le -f mov");
    const auto run = work.convert("-vw:256 -ss:1 -to:3");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_FALSE(contains(run.output, "is not kept")) << run.output;
    const Fields second = streamFields(work.output(), "a:1");
    EXPECT_EQ(second.at("codec_name"), "aac");
    EXPECT_EQ(second.at("sample_rate"), "8000");
    EXPECT_NEAR(std::stod(second.at("duration")), 2.0, 0.15);
    EXPECT_EQ(decodeErrors(work.output()), "");
}

}  // namespace
}  // namespace e2e
