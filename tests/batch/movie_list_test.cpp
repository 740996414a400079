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

    const std::vector<Movie> movies = listMovies({card.string(), dir.file("single.mp4").string()}, (card / "out").string());
    ASSERT_EQ(movies.size(), 3u);
    EXPECT_EQ(movies[0].relative, "DCIM/a.mov");
    EXPECT_EQ(movies[0].output, (card / "out" / "card" / "DCIM" / "a.mov").string());
    EXPECT_EQ(movies[0].source, (card / "DCIM" / "a.mov").string());
    EXPECT_EQ(movies[0].size, 1u);
    EXPECT_GT(movies[0].mtimeNs, 0);
    EXPECT_EQ(movies[1].relative, "DCIM/b.MP4");
    EXPECT_EQ(movies[2].relative, "single.mp4");
    EXPECT_EQ(movies[2].output, (card / "out" / "single.mp4").string());
    for (const Movie& movie : movies) EXPECT_FALSE(movie.verdict) << movie.source;

    // Named as an input itself, the output folder is still not searched.
    const std::vector<Movie> itself = listMovies({(card / "out").string()}, (card / "out/").string());
    ASSERT_EQ(itself.size(), 1u);
    ASSERT_TRUE(itself[0].verdict);
    EXPECT_NE(itself[0].message.find("it is the output folder"), std::string::npos) << itself[0].message;
}

TEST(MovieList, RepeatsCollisionsAndMissingInputsGetTheirVerdicts) {
    testsupport::TempDir dir;
    touch(dir.file("a/clip.mp4"));
    touch(dir.file("b/clip.mp4"));
    fs::create_hard_link(dir.file("a/clip.mp4"), dir.file("a/same.mp4"));
    const std::string out = dir.file("out").string();
    const std::vector<Movie> movies = listMovies({dir.file("a/clip.mp4").string(), dir.file("b/clip.mp4").string(),
                                                  dir.file("a/./clip.mp4").string(), dir.file("a/same.mp4").string(),
                                                  dir.file("missing").string()},
                                                 out);
    ASSERT_EQ(movies.size(), 5u);
    EXPECT_FALSE(movies[0].verdict);
    // Another movie with the same name lands on the same output.
    ASSERT_TRUE(movies[1].verdict);
    EXPECT_EQ(*movies[1].verdict, Status::Refused);
    EXPECT_NE(movies[1].message.find("already the output of " + dir.file("a/clip.mp4").string()), std::string::npos);
    EXPECT_NE(movies[1].message.find("nothing was written."), std::string::npos);
    // The same file again, by another path or a hard link, is done once.
    for (const int repeat : {2, 3}) {
        ASSERT_TRUE(movies[repeat].verdict);
        EXPECT_EQ(*movies[repeat].verdict, Status::Skipped);
        EXPECT_NE(movies[repeat].message.find("the same movie as"), std::string::npos);
    }
    ASSERT_TRUE(movies[4].verdict);
    EXPECT_EQ(*movies[4].verdict, Status::Failed);
    EXPECT_NE(movies[4].message.find("No such file or directory"), std::string::npos);
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
