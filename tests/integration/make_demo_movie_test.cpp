// tavrel-make-demo (built only with the video pipeline; skipped without it):
// the demo movie as ffprobe and tavrel-dump see it.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/run_command.h"
#include "support/test_files.h"

namespace {

using namespace testsupport;

std::string generator() { return binaryDir() + "/tools/tavrel-make-demo"; }

bool has(const std::string& text, const std::string& piece) { return text.find(piece) != std::string::npos; }

class MakeDemoMovie : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(generator())) GTEST_SKIP() << "built without the video pipeline";
    }
    TempDir dir;
};

TEST_F(MakeDemoMovie, WritesADressedTwoToOneMovieWithAacAudio) {
    const std::string movie = dir.file("images/source.mp4").string();
    const auto made = runCommand(shellQuote(generator()) + " " + shellQuote(movie), true);
    ASSERT_EQ(made.status, 0) << made.output;
    // Nothing but the movie is left in its folder.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.file("images")), {}), 1);

    const auto probe = runCommand("ffprobe -v error -show_entries stream=codec_type,codec_name,width,height "
                                  "-of compact=p=0 " + shellQuote(movie));
    EXPECT_EQ(probe.output, "codec_name=h264|codec_type=video|width=1024|height=512\n"
                            "codec_name=aac|codec_type=audio\n");

    const auto dump = runCommand("LC_ALL=C.UTF-8 " + shellQuote(binaryDir() + "/tools/tavrel-dump") + " " +
                                 shellQuote(movie));
    ASSERT_EQ(dump.status, 0) << dump.output;
    // Media data first, then the camera's user data and the spatial-data block.
    EXPECT_LT(dump.output.find("<'mdat'"), dump.output.find("<'moov'")) << dump.output;
    for (const char* box : {"@mod", "KMKN", "@xyz", "KDTB", "KDTC", "KDTD", "KTHU", "KDT9"}) {
        EXPECT_TRUE(has(dump.output, std::string("MP4:         <'") + box + "'")) << box << "\n" << dump.output;
    }
    EXPECT_TRUE(has(dump.output, "<'uuid': start=")) << dump.output;
    EXPECT_TRUE(has(dump.output, "uuid=28f311e2-b791-4f6f-94e2-4f5deacb3c01")) << dump.output;
    EXPECT_TRUE(has(dump.output, "KMKN:     form=tiff-big-endian model=\"KORVA PANOX D\"")) << dump.output;
    EXPECT_TRUE(has(dump.output, " records=90 holds=90 ")) << dump.output;
    EXPECT_TRUE(has(dump.output, "location: @xyz ")) << dump.output;
}

TEST_F(MakeDemoMovie, FailsWithOneLineAndLeavesNothing) {
    writeFile(dir.file("plain"), "a file, not a folder");
    const std::string movie = dir.file("plain/source.mp4").string();
    const auto made = runCommand(shellQuote(generator()) + " " + shellQuote(movie), true);
    EXPECT_EQ(made.status, 1);
    EXPECT_TRUE(has(made.output, "tavrel-make-demo: cannot create the folder ")) << made.output;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

}  // namespace
