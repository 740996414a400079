// The probe's frame rate and picture size as the movie declares them (no
// decoding), against the media libraries: ffprobe's width and height, and
// the average frame rate they report (their real base rate where the
// average is unknown), which the decoding probe used to answer with. Every
// camera source, every real-world movie with video, and cropped and odd
// sizes in H.264 and HEVC made here.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "meta/meta_probe.h"
#include "support/run_command.h"
#include "support/test_files.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;

double rate(const std::string& fraction) {
    const size_t slash = fraction.find('/');
    if (slash == std::string::npos) return 0;
    const double den = std::stod(fraction.substr(slash + 1));
    return den > 0 ? std::stod(fraction.substr(0, slash)) / den : 0;
}

void expectLibrariesAgree(const fs::path& movie) {
    SCOPED_TRACE(movie.filename().string());
    const Fields f = streamFields(movie, "v:0");
    ASSERT_TRUE(f.count("width") && f.count("height")) << "no video";
    double expected = rate(f.at("avg_frame_rate"));
    if (expected <= 0) expected = rate(f.at("r_frame_rate"));

    MetaProbe probe;
    probe.probe(testsupport::widen(movie.string()), false);
    EXPECT_EQ(std::to_string(probe.width) + "x" + std::to_string(probe.height), f.at("width") + "x" + f.at("height"));
    EXPECT_NEAR(probe.frameRate, expected, expected * 1e-5);
}

TEST(FrameDescription, CameraSources) {
    for (int s = 0; s <= static_cast<int>(Source::NewestMoovFirst); ++s) expectLibrariesAgree(sourceMovie(Source(s)));
}

TEST(FrameDescription, RealWorldMoviesWithVideo) {
    const fs::path folder = fs::path(TAVREL_SOURCE_DIR) / "tests/data/realworld/files";
    int movies = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const auto r = testsupport::runCommand(
            "ffprobe -v quiet -select_streams v:0 -show_entries stream=index -of csv=p=0 " +
            testsupport::shellQuote(entry.path().string()));
        if (r.status != 0 || r.output.empty()) continue;
        expectLibrariesAgree(entry.path());
        ++movies;
    }
    EXPECT_GE(movies, 15);
}

// Sizes that are not whole macroblocks or coding blocks, so the SPS crops,
// and odd sizes in 4:4:4, where cropping counts single samples.
TEST(FrameDescription, CroppedAndOddSizes) {
    testsupport::TempDir dir;
    const struct {
        const char* name;
        const char* size;
        const char* rate;
        const char* codec;
    } movies[] = {
        {"avc_1918x1078.mp4", "1918x1078", "30000/1001", "-c:v libx264 -pix_fmt yuv420p"},
        {"avc_101x37.mp4", "101x37", "25", "-c:v libx264 -pix_fmt yuv444p"},
        {"avc_interlaced.mp4", "352x278", "24", "-c:v libx264 -pix_fmt yuv422p -flags +ildct+ilme"},
        {"hevc_1918x1078.mp4", "1918x1078", "24000/1001", "-c:v libx265 -pix_fmt yuv420p -tag:v hvc1"},
        {"hevc_99x45.mp4", "99x45", "60", "-c:v libx265 -pix_fmt yuv444p"},
    };
    for (const auto& m : movies) {
        const fs::path out = dir.file(m.name);
        const std::string command = std::string("ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=") + m.size +
                                    ":rate=" + m.rate + " -frames:v 4 " + m.codec +
                                    " -preset ultrafast -x265-params log-level=error " +
                                    testsupport::shellQuote(out.string());
        const auto r = testsupport::runCommand(command, true);
        ASSERT_EQ(r.status, 0) << r.output;
        expectLibrariesAgree(out);
    }
}

}  // namespace
}  // namespace e2e
