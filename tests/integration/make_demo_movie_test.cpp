// tavrel-make-demo (built only with the video pipeline; skipped without it):
// the demo movie as ffprobe and tavrel-dump see it, and a failure.
#include <gtest/gtest.h>

#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::runCommand;
using testsupport::shellQuote;

TEST(MakeDemoMovie, WritesADressedTwoToOneMovieOrFailsWithOneLineAndLeavesNothing) {
    if (!std::filesystem::exists(testsupport::binaryDir() + "/tools/tavrel-make-demo")) {
        GTEST_SKIP() << "built without the video pipeline";
    }
    testsupport::TempDir dir;
    const std::string movie = dir.file("images/source.mp4").string();
    const auto made = runCommand(toolCommand("tavrel-make-demo") + " " + shellQuote(movie), true);
    ASSERT_EQ(made.status, 0) << made.output;
    // Nothing but the movie is left in its folder.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.file("images")), {}), 1);
    const auto probe = runCommand("ffprobe -v error -show_entries stream=codec_type,codec_name,width,height "
                                  "-of compact=p=0 " + shellQuote(movie));
    EXPECT_EQ(probe.output, "codec_name=h264|codec_type=video|width=1024|height=512\ncodec_name=aac|codec_type=audio\n");

    const auto dump = runCommand(toolCommand("tavrel-dump") + " " + shellQuote(movie));
    ASSERT_EQ(dump.status, 0) << dump.output;
    // Media data first, then the camera's user data and the spatial-data block.
    EXPECT_LT(dump.output.find("<'mdat'"), dump.output.find("<'moov'")) << dump.output;
    for (const char* box : {"@mod", "KMKN", "@xyz", "KDTB", "KDTC", "KDTD", "KTHU", "KDT9"}) {
        EXPECT_TRUE(contains(dump.output, std::string("MP4:         <'") + box + "'")) << box << "\n" << dump.output;
    }
    for (const char* line : {"uuid=28f311e2-b791-4f6f-94e2-4f5deacb3c01", "KMKN:     form=tiff-big-endian model=\"KORVA PANOX D\"",
                             " records=90 holds=90 ", "location: @xyz "}) {
        EXPECT_TRUE(contains(dump.output, line)) << line << "\n" << dump.output;
    }

    testsupport::writeFile(dir.file("plain"), "a file, not a folder");
    const auto failed = runCommand(toolCommand("tavrel-make-demo") + " " + shellQuote(dir.file("plain/source.mp4").string()), true);
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(contains(failed.output, "tavrel-make-demo: cannot create the folder ")) << failed.output;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2);
}

}  // namespace
}  // namespace e2e
