// The video pipeline's outputs as ffprobe and ffmpeg see them, through the
// tavrel-transcode driver (built only with the pipeline; skipped without it).
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <vector>

#include "support/run_command.h"
#include "support/test_files.h"

namespace {

using namespace testsupport;

std::string driver() { return binaryDir() + "/tools/tavrel-transcode"; }

class VideoPipeline : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(driver())) GTEST_SKIP() << "built without the video pipeline";
    }

    // A source movie from lavfi inputs; audio may be empty (video only).
    std::string source(const std::string& name, const std::string& video, const std::string& audio,
                       double seconds, const std::string& extra = "") {
        const std::string path = dir.file(name).string();
        std::string command = "ffmpeg -nostdin -v error -y -f lavfi -i " + shellQuote(video);
        if (!audio.empty()) command += " -f lavfi -i " + shellQuote(audio);
        command += " -t " + std::to_string(seconds) +
                   " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 30 " + extra + " " + shellQuote(path);
        const auto result = runCommand(command, true);
        EXPECT_EQ(result.status, 0) << result.output;
        return path;
    }

    CommandResult transcode(const std::string& in, const std::string& out, const std::string& options) {
        return runCommand(shellQuote(driver()) + " " + shellQuote(in) + " " + shellQuote(out) + " " + options, true);
    }

    TempDir dir;
};

// key=value lines of one ffprobe section per stream type ("v" or "a").
std::map<std::string, std::string> probe(const std::string& path, const std::string& stream,
                                         const std::string& entries) {
    const auto result = runCommand("ffprobe -v error -select_streams " + stream + " -count_frames -show_entries " +
                                   entries + " -of default=noprint_wrappers=1 " + shellQuote(path));
    std::map<std::string, std::string> out;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        const auto eq = line.find('=');
        if (eq != std::string::npos && !out.count(line.substr(0, eq))) out[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return out;
}

std::string decodeErrors(const std::string& path) {
    return runCommand("ffmpeg -nostdin -v error -i " + shellQuote(path) + " -f null - 2>&1").output;
}

// Offsets of the top-level moov and mdat boxes.
std::pair<long, long> moovAndMdat(const std::string& path) {
    const std::string bytes = readFile(path);
    long moov = -1, mdat = -1;
    for (size_t pos = 0; pos + 8 <= bytes.size();) {
        uint64_t size = (uint64_t(uint8_t(bytes[pos])) << 24) | (uint64_t(uint8_t(bytes[pos + 1])) << 16) |
                        (uint64_t(uint8_t(bytes[pos + 2])) << 8) | uint64_t(uint8_t(bytes[pos + 3]));
        const std::string type = bytes.substr(pos + 4, 4);
        if (size == 1 && pos + 16 <= bytes.size()) {
            size = 0;
            for (int i = 0; i < 8; ++i) size = (size << 8) | uint8_t(bytes[pos + 8 + i]);
        }
        if (type == "moov") moov = static_cast<long>(pos);
        if (type == "mdat") mdat = static_cast<long>(pos);
        if (size < 8) break;
        pos += size;
    }
    return {moov, mdat};
}

TEST_F(VideoPipeline, ATrimmedH264ReencodeAsAskedFromSecondOneToTwo) {
    const auto in = source("in.mp4", "testsrc=size=256x128:rate=30", "sine=frequency=440:sample_rate=48000", 3.0,
                           "-c:a aac -ac 2");
    const auto out = dir.file("out.mp4").string();
    const auto run = transcode(in, out,
                               "--start=1 --end=2 --size=128x64 --keyint=10 --bitrate=400000 --channels=2 "
                               "--audio-bitrate=96000");
    ASSERT_EQ(run.status, 0) << run.output;

    const auto v = probe(out, "v", "stream=codec_name,profile,width,height,start_time,nb_read_frames");
    EXPECT_EQ(v.at("codec_name"), "h264");
    EXPECT_TRUE(v.at("profile") == "Baseline" || v.at("profile") == "Constrained Baseline") << v.at("profile");
    EXPECT_EQ(v.at("width"), "128");
    EXPECT_EQ(v.at("height"), "64");
    EXPECT_DOUBLE_EQ(std::stod(v.at("start_time")), 0.0);
    EXPECT_NEAR(std::stoi(v.at("nb_read_frames")), 30, 1);

    const auto a = probe(out, "a", "stream=codec_name,sample_rate,channels,start_time");
    EXPECT_EQ(a.at("codec_name"), "aac");
    EXPECT_EQ(a.at("sample_rate"), "48000");
    EXPECT_EQ(a.at("channels"), "2");
    EXPECT_DOUBLE_EQ(std::stod(a.at("start_time")), 0.0);

    // Key frames exactly every tenth frame (Baseline: packets come in
    // presentation order).
    const auto keys = runCommand("ffprobe -v error -select_streams v -show_entries packet=flags -of csv=p=0 " +
                                 shellQuote(out));
    std::istringstream flags(keys.output);
    int index = 0;
    for (std::string flag; std::getline(flags, flag); ++index) {
        EXPECT_EQ(flag.substr(0, 1), index % 10 == 0 ? "K" : "_") << "frame " << index;
    }
    EXPECT_EQ(index, std::stoi(v.at("nb_read_frames")));

    EXPECT_EQ(decodeErrors(out), "");
    const auto [moov, mdat] = moovAndMdat(out);
    EXPECT_LT(moov, mdat);
    EXPECT_GE(moov, 0);
}

TEST_F(VideoPipeline, HevcIsTaggedHvc1WithItsRangeAndMoovGoesLastOnRequest) {
    const auto in = source("in.mp4", "testsrc=size=128x64:rate=30", "sine=sample_rate=44100", 1.0, "-c:a aac");
    const auto out = dir.file("out.mp4").string();
    const auto run = transcode(in, out, "--hevc --moov-first=0 --keyint=15");
    ASSERT_EQ(run.status, 0) << run.output;
    const auto v = probe(out, "v", "stream=codec_name,codec_tag_string,color_range,nb_read_frames");
    EXPECT_EQ(v.at("codec_name"), "hevc");
    EXPECT_EQ(v.at("codec_tag_string"), "hvc1");
    EXPECT_EQ(v.at("color_range"), "pc");  // "420f" pictures are full range
    EXPECT_EQ(v.at("nb_read_frames"), "30");
    const auto a = probe(out, "a", "stream=sample_rate,channels");
    EXPECT_EQ(a.at("sample_rate"), "44100");
    EXPECT_EQ(a.at("channels"), "1");
    EXPECT_EQ(decodeErrors(out), "");
    const auto [moov, mdat] = moovAndMdat(out);
    EXPECT_GT(moov, mdat);
    EXPECT_GE(mdat, 0);
}

TEST_F(VideoPipeline, TheAverageBitRatesAreHonoured) {
    // Mild noise neither fits far below the target nor needs far more.
    const auto in = source("noise.mp4", "nullsrc=size=256x128:rate=30,geq=128+random(1)*30:128:128",
                           "anoisesrc=sample_rate=48000:amplitude=0.5", 2.0, "-c:a aac -b:a 256k -qp 10");
    const auto out = dir.file("out.mp4").string();
    ASSERT_EQ(transcode(in, out, "--bitrate=600000 --audio-bitrate=64000 --keyint=30").status, 0);
    const auto v = probe(out, "v", "stream=bit_rate");
    const auto a = probe(out, "a", "stream=bit_rate,sample_rate");
    EXPECT_NEAR(std::stod(v.at("bit_rate")), 600000, 600000 * 0.15);
    EXPECT_NEAR(std::stod(a.at("bit_rate")), 64000, 64000 * 0.25);
}

TEST_F(VideoPipeline, ASourceWithoutAudioGivesAVideoOnlyMovieAndLowRatesAreRaised) {
    const auto silent = source("silent.mp4", "testsrc=size=128x64:rate=25", "", 1.0);
    const auto out = dir.file("out.mp4").string();
    ASSERT_EQ(transcode(silent, out, "").status, 0);
    const auto streams = runCommand("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 " + shellQuote(out));
    EXPECT_EQ(streams.output, "video\n");
    EXPECT_EQ(decodeErrors(out), "");

    const auto low = source("low.mp4", "testsrc=size=128x64:rate=25", "sine=sample_rate=32000", 1.0, "-c:a aac");
    ASSERT_EQ(transcode(low, out, "").status, 0);
    EXPECT_EQ(probe(out, "a", "stream=sample_rate").at("sample_rate"), "44100");
}

TEST_F(VideoPipeline, ThumbnailsDecodeAtTheMoviesSizeAndWithinTheirTarget) {
    const auto in = source("in.mp4", "testsrc=size=1280x640:rate=30", "", 0.2);
    const auto whole = dir.file("whole.jpg").string();
    ASSERT_EQ(runCommand(shellQuote(driver()) + " --thumbnail " + shellQuote(in) + " " + shellQuote(whole)).status, 0);
    auto v = probe(whole, "v", "stream=codec_name,width,height");
    EXPECT_EQ(v.at("codec_name"), "mjpeg");
    EXPECT_EQ(v.at("width"), "1280");
    EXPECT_EQ(v.at("height"), "640");
    EXPECT_EQ(decodeErrors(whole), "");

    for (const int target : {60000, 20000}) {
        const auto small = dir.file("small" + std::to_string(target) + ".jpg").string();
        const auto run = runCommand(shellQuote(driver()) + " --thumbnail " + shellQuote(in) + " " + shellQuote(small) +
                                    " 640 " + std::to_string(target));
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_LE(std::filesystem::file_size(small), static_cast<uintmax_t>(target));
        v = probe(small, "v", "stream=width,height");
        EXPECT_EQ(v.at("width"), "640");
        EXPECT_EQ(v.at("height"), "320");
        EXPECT_EQ(decodeErrors(small), "");
    }
}

}  // namespace
