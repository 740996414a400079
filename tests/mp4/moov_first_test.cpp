// Moving the movie box in front of the media data, and the time stamps.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

std::vector<std::string> topLevelTypes(MP4::Container& c) {
    std::vector<std::string> types;
    for (const auto& child : c.root()->children) types.push_back(child->name());
    return types;
}

}  // namespace

TEST(MoovFirst, MovesTheMovieBoxAndEverySampleStaysInReach) {
    for (bool use64 : {false, true}) {
        SCOPED_TRACE(use64 ? "co64" : "stco");
        const MovieShape shape{.moovFirst = false, .use64 = use64};
        MovieFile m(buildMovie(shape));
        EXPECT_TRUE(m.container.isMdatFirst());
        EXPECT_TRUE(m.container.moovFirst());
        EXPECT_EQ(topLevelTypes(m.container), (std::vector<std::string>{"ftyp", "moov", "mdat"}));
        EXPECT_FALSE(m.container.isMdatFirst());
        EXPECT_EQ(allSamples(m.path), movieSamples(shape));
        // The same bytes as a movie built in that order to begin with.
        EXPECT_EQ(m.bytes(), buildMovie({.moovFirst = true, .use64 = use64}));
        EXPECT_FALSE(m.temporaryLeft());
    }
}

TEST(MoovFirst, AMovieAlreadyInThatOrderIsLeftAlone) {
    MovieFile m(buildMovie({}));
    struct stat before {};
    ::stat(m.path.c_str(), &before);
    EXPECT_FALSE(m.container.isMdatFirst());
    EXPECT_FALSE(m.container.moovFirst());
    struct stat after {};
    ::stat(m.path.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(m.bytes(), m.original);
}

TEST(MoovFirst, ShiftsByExactlyTheMovieBoxSize) {
    // A box between the media data and the movie box moves in front of the
    // movie box but is not counted in the shift.
    const MovieShape shape{.moovFirst = false};
    const Bytes movie = buildMovie(shape);
    MovieFile probe(movie);
    const auto* moov = probe.container.moov();
    const auto* mdat = probe.container.mdat();
    ASSERT_TRUE(moov && mdat);
    const uint64_t moovSize = moov->size;
    const Bytes free = box("free", "between");
    const Bytes withFree = movie.substr(0, mdat->end()) + free + movie.substr(mdat->end());
    MovieFile m(withFree);
    const auto before = chunkOffsets(m.path);
    EXPECT_TRUE(m.container.moovFirst());
    EXPECT_EQ(topLevelTypes(m.container),
              (std::vector<std::string>{"ftyp", "free", "moov", "mdat"}));
    auto after = chunkOffsets(m.path);
    for (size_t t = 0; t < before.size(); ++t) {
        for (size_t i = 0; i < before[t].size(); ++i) EXPECT_EQ(after[t][i], before[t][i] + moovSize);
    }
}

TEST(MoovFirst, ASpatialBlockAfterTheMovieBoxKeepsItsPlace) {
    const std::string spatialId("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);
    const Bytes katr = container(
        "KATR", {container("mdia", {container("minf", {container("stbl", {co64({0x1234})})})})});
    const Bytes block = uuidBox(spatialId, box("KADT", "pcm") + katr);
    const MovieShape shape{.moovFirst = false};
    MovieFile m(buildMovie(shape) + block);
    EXPECT_TRUE(m.container.moovFirst());
    const Bytes b = m.bytes();
    EXPECT_EQ(b.substr(b.size() - block.size()), block);
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
}

TEST(MoovFirst, BrokenTablesFailAndLeaveTheSource) {
    // An entry count far beyond its table.
    Bytes movie = buildMovie({.moovFirst = false, .withAudio = false});
    const size_t at = movie.find("stco") + 8;
    movie.replace(at, 4, be32(100000));
    MovieFile m(movie);
    ConsoleCapture console;
    EXPECT_FALSE(m.container.moovFirst());
    EXPECT_EQ(m.bytes(), movie);
    EXPECT_FALSE(m.temporaryLeft());
    EXPECT_NE(console.text().find("Container::modifyContainer::moovFirst("), std::string::npos);
}

TEST(TimeStamp, WritesTheCreationTimeInEveryHeaderInItsVersionsWidth) {
    // Version 1 movie header, a version 0 and a version 1 track.
    auto trak = [](uint8_t v) {
        return container("trak", {tkhd(v, 5, 0, 0), container("mdia", {mdhd(v, 5, 1000, 10)})});
    };
    const Bytes moov = box("moov", mvhd(1, 5, 1000, 10) + trak(0) + trak(1));
    MovieFile m(box("ftyp", "isom") + moov + box("moov", mvhd(0, 5, 1000, 10)));
    const uint64_t time = 0x0000000A11223344ull;
    EXPECT_TRUE(m.container.updateTimeStamp(time));
    MP4::Container again;
    again.attach(m.wpath());
    std::vector<uint64_t> stamps;
    again.find("moov.mvhd", [&](MP4::BOX& b) {
        return stamps.push_back(dynamic_cast<MP4::MVHD&>(b).creationTime), true;
    });
    again.find("moov.trak.tkhd", [&](MP4::BOX& b) {
        return stamps.push_back(dynamic_cast<MP4::TKHD&>(b).creationTime), true;
    });
    again.find("moov.trak.mdia.mdhd", [&](MP4::BOX& b) {
        return stamps.push_back(dynamic_cast<MP4::MDHD&>(b).creationTime), true;
    });
    // Only the first movie header; version 0 keeps the low 32 bits.
    EXPECT_EQ(stamps, (std::vector<uint64_t>{time, 5, 0x11223344, time, 0x11223344, time}));
    // The modification time right after it is untouched.
    const Bytes b = m.bytes();
    const size_t mvhdAt = b.find("mvhd");
    EXPECT_EQ(b.substr(mvhdAt + 8, 8), be64(time));
    EXPECT_EQ(b.substr(mvhdAt + 16, 8), be64(5));
}

TEST(TimeStamp, AHeaderTooSmallForTheFieldIsNotWritten) {
    const Bytes tiny = fullBox("tkhd", 0, 0, "ab");  // 14 bytes
    MovieFile m(box("moov", box("trak", tiny)) + box("free", "after"));
    EXPECT_FALSE(m.container.updateTimeStamp(0xFFFFFFFF));
    EXPECT_EQ(m.bytes(), m.original);
}

TEST(TimeStamp, WithAnOutputPathTheStampGoesIntoACopy) {
    MovieFile m(buildMovie({}));
    const auto output = m.dir.file("out.mp4");
    m.container.setOutputPath(widen(output.string()));
    EXPECT_TRUE(m.container.updateTimeStamp(42));
    EXPECT_EQ(m.bytes(), m.original);
    MP4::Container out;
    out.attach(widen(output.string()));
    bool seen = false;
    out.find("moov.mvhd", [&](MP4::BOX& b) {
        seen = true;
        EXPECT_EQ(dynamic_cast<MP4::MVHD&>(b).creationTime, 42u);
        return false;
    });
    EXPECT_TRUE(seen);
}
