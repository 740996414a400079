// The kept first frame: shared while its file stays as it was, decoded anew
// once the file changes or the frame was let go.
#include "video/first_frame.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "movie_fixtures.h"
#include "support/test_files.h"
#include "video/movie_file.h"

namespace {

QVMX::ff::FramePtr firstFrameOf(const std::filesystem::path& movie) {
    std::string error;
    QVMX::ff::InputPtr format = QVMX::openMovieHeaders(movie.string(), error);
    if (!format) return nullptr;
    return QVMX::firstVideoFrame(movie.string(), format.get(), QVMX::firstStreamOf(format.get(), AVMEDIA_TYPE_VIDEO));
}

}  // namespace

TEST(FirstVideoFrame, IsSharedWhileTheFileStaysAndDecodedAnewWhenItChanges) {
    testsupport::TempDir dir;
    videotest::Fixture small;
    small.seconds = 0.5;
    small.audio = false;
    const auto movie = videotest::makeMovie(dir.path(), "m.mp4", small);
    const auto first = firstFrameOf(movie);
    ASSERT_TRUE(first);
    const auto again = firstFrameOf(movie);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->data[0], first->data[0]);
    const auto kept = QVMX::keptFirstVideoFrame(movie.string());
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->data[0], first->data[0]);

    // Another movie renamed over the same path is another file.
    videotest::Fixture wider = small;
    wider.width = 160;
    std::filesystem::rename(videotest::makeMovie(dir.path(), "wider.mp4", wider), movie);
    EXPECT_FALSE(QVMX::keptFirstVideoFrame(movie.string()));
    const auto replaced = firstFrameOf(movie);
    ASSERT_TRUE(replaced);
    EXPECT_EQ(replaced->width, 160);

    QVMX::forgetFirstVideoFrame();
    EXPECT_FALSE(QVMX::keptFirstVideoFrame(movie.string()));
    const auto decoded = firstFrameOf(movie);
    ASSERT_TRUE(decoded);
    EXPECT_NE(decoded->data[0], replaced->data[0]);
    EXPECT_EQ(decoded->width, 160);
}
