// What the video pipeline does beyond what the tavrel runs show, through the
// tavrel-transcode driver (built only with the pipeline; skipped without
// it): average bit rates, a source without sound, thumbnails within a size.
#include <gtest/gtest.h>

#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::runCommand;
using testsupport::shellQuote;

class VideoPipeline : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(testsupport::binaryDir() + "/tools/tavrel-transcode")) {
            GTEST_SKIP() << "built without the video pipeline";
        }
    }

    // A source movie from lavfi inputs, with sound unless audio is empty.
    std::filesystem::path source(const std::string& video, const std::string& audio, const std::string& rest) {
        const auto path = dir.file("in.mp4");
        const auto made = runCommand("ffmpeg -nostdin -v error -y -f lavfi -i " + shellQuote(video) +
                                         (audio.empty() ? "" : " -f lavfi -i " + shellQuote(audio)) +
                                         " -c:v libx264 -preset ultrafast -pix_fmt yuv420p " + rest + " " + shellQuote(path.string()),
                                     true);
        EXPECT_EQ(made.status, 0) << made.output;
        return path;
    }

    int transcode(const std::string& arguments) {
        const auto run = runCommand(toolCommand("tavrel-transcode") + " " + arguments, true);
        EXPECT_EQ(run.status, 0) << run.output;
        return run.status;
    }

    testsupport::TempDir dir;
    const std::string out = shellQuote(dir.file("out.mp4").string());
};

TEST_F(VideoPipeline, TheAverageBitRatesAreHonoured) {
    // Mild noise neither fits far below the target nor needs far more.
    const auto in = source("nullsrc=size=256x128:rate=30,geq=128+random(1)*30:128:128",
                           "anoisesrc=sample_rate=48000:amplitude=0.5", "-t 2 -c:a aac -b:a 256k -qp 10");
    ASSERT_EQ(transcode(shellQuote(in.string()) + " " + out + " --bitrate=600000 --audio-bitrate=64000 --keyint=30"), 0);
    EXPECT_NEAR(std::stod(streamFields(dir.file("out.mp4"), "v:0").at("bit_rate")), 600000, 600000 * 0.15);
    EXPECT_NEAR(std::stod(streamFields(dir.file("out.mp4"), "a:0").at("bit_rate")), 64000, 64000 * 0.25);
}

TEST_F(VideoPipeline, ASourceWithoutSoundGivesAVideoOnlyMovieAndThumbnailsKeepWithinTheirTarget) {
    const auto in = source("testsrc=size=1280x640:rate=25", "", "-t 1");
    ASSERT_EQ(transcode(shellQuote(in.string()) + " " + out), 0);
    EXPECT_EQ(runCommand("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 " + out).output, "video\n");
    EXPECT_EQ(decodeErrors(dir.file("out.mp4")), "");

    for (const std::string target : {"", " 640 20000"}) {
        const auto jpeg = dir.file("thumbnail.jpg");
        ASSERT_EQ(transcode("--thumbnail " + shellQuote(in.string()) + " " + shellQuote(jpeg.string()) + target), 0);
        expectJpeg(jpeg, target.empty() ? "1280" : "640", target.empty() ? "640" : "320");
        EXPECT_LE(std::filesystem::file_size(jpeg), target.empty() ? 1000000u : 20000u);
    }
}

}  // namespace
}  // namespace e2e
