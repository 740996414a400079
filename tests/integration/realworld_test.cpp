// Movies written by other software (tests/data/realworld, with where each
// came from in its manifest): tavrel-dump, the metadata path and a
// re-encode each end in a success that keeps what it must, or in a refusal
// that says so and writes nothing. The movies marked BROKEN in the manifest
// may be refused; every other one must pass the dump and the metadata path.
#include <gtest/gtest.h>

#include <cctype>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "run_outcome.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

const std::filesystem::path kData = std::filesystem::path(TAVREL_SOURCE_DIR) / "tests/data/realworld";

struct Movie {
    std::string id;
    std::string notes;
    bool broken() const { return notes.rfind("BROKEN", 0) == 0; }
    bool truncated() const { return broken() && notes.find("truncated") != std::string::npos; }
};

void PrintTo(const Movie& m, std::ostream* os) { *os << m.id; }

nlohmann::json manifestFiles() { return nlohmann::json::parse(testsupport::readFile(kData / "manifest.json"))["files"]; }

std::vector<Movie> manifest() {
    std::vector<Movie> movies;
    for (const auto& f : manifestFiles()) movies.push_back({f["id"], f.value("notes", "")});
    if (movies.empty()) throw std::runtime_error("the manifest lists no movie");
    return movies;
}

// The re-encode must work on these: an action camera's own movie and a
// plain H.264 movie with a caption track beside it.
bool mustReencode(const Movie& m) { return m.id == "gpmf-hero7.mp4" || m.id == "mp4ff-main_1.mp4"; }

std::string testName(const testing::TestParamInfo<Movie>& info) {
    std::string name;
    for (char c : info.param.id) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

class RealWorld : public testing::TestWithParam<Movie> {
protected:
    const Movie& movie() const { return GetParam(); }
    std::filesystem::path file() const { return kData / "files" / movie().id; }
    std::string name() const { return testsupport::shellQuote(movie().id); }
};

TEST(RealWorldData, EveryMovieIsThereWithTheBytesAndLicenceTheManifestRecords) {
    for (const auto& f : manifestFiles()) {
        const auto path = kData / "files" / f["id"].get<std::string>();
        ASSERT_TRUE(std::filesystem::exists(path)) << path;
        EXPECT_EQ(sha256(path), f["sha256"]) << path;
        EXPECT_EQ(std::filesystem::file_size(path), f["bytes"]) << path;
        // Each movie keeps its own licence, and the manifest must say which.
        EXPECT_FALSE(f.value("license", "").empty()) << path << " has no licence in the manifest";
    }
}

TEST_P(RealWorld, DumpReadsTheMovieOrRefusesIt) {
    Workspace work(file(), movie().id);
    const auto run = runIn(work, dumpCommand() + " " + name());
    if (!movie().broken()) {
        EXPECT_EQ(run.status, 0) << run.out << run.err;
    } else {
        EXPECT_TRUE(run.status == 0 || run.status == 1) << run.status << "\n" << run.err;
    }
    EXPECT_EQ(namesIn(work.dir()), std::vector<std::string>{movie().id});
}

TEST_P(RealWorld, MetadataPathKeepsEveryPacketOrRefuses) {
    Workspace work(file(), movie().id);
    const auto run = runIn(work, tavrelCommand() + " " + name() + " out.mp4");
    if (run.status == 0 && !movie().truncated()) {
        expectSamePackets(work.source(), work.output());
        if (!movie().broken()) {
            EXPECT_FALSE(packetsByStream(work.source()).empty());
        }
        EXPECT_EQ(namesIn(work.dir()), (std::vector<std::string>{movie().id, "out.mp4"}));
        return;
    }
    EXPECT_TRUE(movie().broken()) << "refused a sound movie:\n" << run.out << run.err;
    expectRefusal(work, run);
    if (movie().truncated()) {
        EXPECT_NE(run.out.find("points past the end of the file"), std::string::npos) << run.out;
    }
}

TEST_P(RealWorld, ReencodeWritesA256WideMovieOrRefuses) {
    Workspace work(file(), movie().id);
    const auto run = runIn(work, tavrelCommand() + " -vw:256 -to:2 " + name() + " out.mp4");
    if (run.status == 0) {
        const auto streams = streamList(work.output());
        EXPECT_FALSE(streams.empty()) << "ffprobe cannot open the output";
        const Fields video = streamFields(work.output(), "v:0");
        EXPECT_EQ(video.count("width") ? video.at("width") : "no video stream", "256");
        EXPECT_EQ(namesIn(work.dir()), (std::vector<std::string>{movie().id, "out.mp4"}));
        return;
    }
    EXPECT_FALSE(mustReencode(movie())) << "refused:\n" << run.out << run.err;
    expectRefusal(work, run);
}

INSTANTIATE_TEST_SUITE_P(Manifest, RealWorld, testing::ValuesIn(manifest()), testName);

}  // namespace
}  // namespace e2e
