// Which files a batch takes from its inputs, where each one's output goes,
// and the inputs it cannot run, each with its reason.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

#include "support/test_files.h"
#include "tools/batch/movie_list.h"

namespace batch {
namespace {

namespace fs = std::filesystem;

void touch(const fs::path& path, const std::string& bytes = "x") {
    fs::create_directories(path.parent_path());
    testsupport::writeFile(path, bytes);
}

TEST(MovieList, OutputPathsKeepTheFolderNameAndThePathInsideIt) {
    EXPECT_EQ(outputPathFor("/out", "/media/card", "DCIM/a.MP4"), "/out/card/DCIM/a.MP4");
    EXPECT_EQ(outputPathFor("/out/", "/media/card/", "a.mov"), "/out/card/a.mov");
    EXPECT_EQ(outputPathFor("/out", "/media/card/./x/..", "a.mov"), "/out/card/a.mov");
    EXPECT_EQ(outputPathFor("/out", "/media/card/DCIM/a.MP4"), "/out/a.MP4");
    EXPECT_TRUE(isMovieName("a.MP4"));
    EXPECT_TRUE(isMovieName("a.Mov"));
    EXPECT_FALSE(isMovieName("a.mp4.txt"));
    EXPECT_FALSE(isMovieName("mp4"));
}

TEST(MovieList, FoldersAreSearchedSortedSkippingOtherFilesAndTheOutputFolder) {
    testsupport::TempDir dir;
    const fs::path card = dir.file("card");
    touch(card / "DCIM" / "b.MP4");
    touch(card / "DCIM" / "a.mov");
    touch(card / "notes.txt");
    touch(card / "out" / "old.mp4");  // the output folder, inside the input
    touch(dir.file("single.mp4"));
    fs::create_directory_symlink(card, card / "DCIM" / "loop");

    // Where each output goes is tried end to end (BatchRun); here the order
    // and what is left out.
    const std::vector<Movie> movies = listMovies({card.string(), dir.file("single.mp4").string()}, (card / "out").string());
    std::vector<std::string> relative;
    for (const Movie& movie : movies) {
        relative.push_back(movie.relative);
        EXPECT_FALSE(movie.verdict) << movie.source;
    }
    EXPECT_EQ(relative, (std::vector<std::string>{"DCIM/a.mov", "DCIM/b.MP4", "single.mp4"}));

    // Named as an input itself, the output folder is still not searched.
    const std::vector<Movie> itself = listMovies({(card / "out").string()}, (card / "out/").string());
    ASSERT_EQ(itself.size(), 1u);
    ASSERT_TRUE(itself[0].verdict);
    EXPECT_NE(itself[0].message.find("it is the output folder"), std::string::npos) << itself[0].message;
}

// Collisions, repeats by another path and missing inputs are tried end to
// end (BatchBadInput); a hard link is the same movie too.
TEST(MovieList, AHardLinkToAMovieIsTheSameMovie) {
    testsupport::TempDir dir;
    touch(dir.file("a/clip.mp4"));
    fs::create_hard_link(dir.file("a/clip.mp4"), dir.file("a/same.mp4"));
    const std::vector<Movie> movies =
        listMovies({dir.file("a/clip.mp4").string(), dir.file("a/same.mp4").string()}, dir.file("out").string());
    ASSERT_EQ(movies.size(), 2u);
    EXPECT_FALSE(movies[0].verdict);
    ASSERT_TRUE(movies[1].verdict);
    EXPECT_EQ(*movies[1].verdict, Status::Skipped);
    EXPECT_NE(movies[1].message.find("the same movie as"), std::string::npos) << movies[1].message;
}

TEST(MovieList, AFolderThatCannotBeReadIsAnEntryAndTheRestIsListed) {
    if (::geteuid() == 0) GTEST_SKIP() << "every folder can be read as root";
    testsupport::TempDir dir;
    touch(dir.file("card/a/clip.mp4"));
    touch(dir.file("card/b/clip.mp4"));
    fs::permissions(dir.file("card/a"), fs::perms::none);
    const std::vector<Movie> movies = listMovies({dir.file("card").string()}, dir.file("out").string());
    fs::permissions(dir.file("card/a"), fs::perms::owner_all);
    ASSERT_EQ(movies.size(), 2u);
    ASSERT_TRUE(movies[0].verdict);
    EXPECT_EQ(*movies[0].verdict, Status::Failed);
    EXPECT_NE(movies[0].message.find("cannot read the folder"), std::string::npos) << movies[0].message;
    EXPECT_EQ(movies[0].relative, "a");
    EXPECT_FALSE(movies[1].verdict);
}

}  // namespace
}  // namespace batch
