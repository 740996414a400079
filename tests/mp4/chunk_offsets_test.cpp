// Size and chunk-offset fix-ups: what they write, and what they refuse to
// write when the tables do not hold what they claim.
#include <gtest/gtest.h>
#include <unistd.h>

#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

std::vector<std::vector<uint64_t>> shiftedBy(std::vector<std::vector<uint64_t>> offsets, int64_t d) {
    for (auto& track : offsets) {
        for (auto& o : track) o += static_cast<uint64_t>(d);
    }
    return offsets;
}

// moov > trak > mdia > minf > stbl > the given tables
Bytes tablesMovie(std::initializer_list<Bytes> tables, const Bytes& tail = Bytes(64, 'd')) {
    Bytes stbl = box("stbl", join(tables));
    return box("ftyp", "isom") +
           container("moov", {container("trak", {container("mdia", {container("minf", {stbl})})})}) +
           box("mdat", tail);
}

}  // namespace

TEST(ModifyBoxSize, GrowsTheBoxAndEveryBoxAboveItButNotTheFile) {
    const Bytes ftyp = box("ftyp", "isom");
    MovieFile m(ftyp + box("moov", box("udta", box("free", "x"))));
    {
        MP4::BinFile file(m.wpath(), 'a');
        EXPECT_TRUE(MP4::Container::modifyBoxSize(file, *m.first("moov.udta.free"), 10));
    }
    const Bytes b = m.bytes();
    EXPECT_EQ(b.substr(0, ftyp.size()), ftyp);
    EXPECT_EQ(b.substr(12, 4), be32(25 + 10));  // moov
    EXPECT_EQ(b.substr(20, 4), be32(17 + 10));  // udta
    EXPECT_EQ(b.substr(28, 4), be32(9 + 10));   // free
}

TEST(ModifyBoxSize, LargeHeadersTakeEightBytesAndImpossibleSizesWriteNothing) {
    MovieFile m(largeBox("moov", box("udta")));
    {
        MP4::BinFile file(m.wpath(), 'a');
        EXPECT_TRUE(MP4::Container::modifyBoxSize(file, *m.first("moov.udta"), 4));
    }
    EXPECT_EQ(m.bytes().substr(0, 16), be32(1) + "moov" + be64(24 + 4));
    EXPECT_EQ(m.bytes().substr(16, 4), be32(12));

    MovieFile n(box("moov", box("udta")));
    {
        MP4::BinFile file(n.wpath(), 'a');
        EXPECT_FALSE(MP4::Container::modifyBoxSize(file, *n.first("moov.udta"), -9));
        EXPECT_FALSE(MP4::Container::modifyBoxSize(file, *n.first("moov.udta"), 0xFFFFFFFFll));
    }
    EXPECT_EQ(n.bytes(), n.original);
}

TEST(ChunkOffsets, EveryTableOfEveryTrackMovesInItsOwnWidth) {
    for (bool use64 : {false, true}) {
        SCOPED_TRACE(use64 ? "co64" : "stco");
        MovieFile m(buildMovie({.moovFirst = false, .use64 = use64}));
        const auto before = chunkOffsets(m.path);
        ASSERT_EQ(before.size(), 2u);
        {
            MP4::BinFile file(m.wpath(), 'a');
            EXPECT_TRUE(m.container.modifySTCOIndex(file, 7));
        }
        EXPECT_EQ(chunkOffsets(m.path), shiftedBy(before, 7));
        {
            MP4::BinFile file(m.wpath(), 'a');
            EXPECT_TRUE(m.container.modifySTCOIndex(file, -7));
        }
        EXPECT_EQ(m.bytes(), m.original);
        // Only the tables changed size-wise: nothing else moved.
        EXPECT_EQ(m.bytes().size(), m.original.size());
    }
}

TEST(ChunkOffsets, TablesThatDoNotHoldWhatTheyClaimAreNotWritten) {
    const Bytes overCount = fullBox("stco", 0, 0, be32(1000) + be32(100) + be32(120));
    const Bytes pastTheFile = fullBox("stco", 0, 0, be32(2) + be32(100) + be32(90000));
    const Bytes belowZero = fullBox("co64", 0, 0, be32(1) + be64(3));
    const Bytes noRoomForCount = box("stco", "\0\0");
    struct Case {
        const char* what;
        Bytes table;
        int64_t delta;
    } cases[] = {{"count larger than the box", overCount, 8},
                 {"offset past the file", pastTheFile, 8},
                 {"offset below zero", belowZero, -8},
                 {"no entry count", noRoomForCount, 8}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        MovieFile m(tablesMovie({c.table}));
        MP4::BinFile file(m.wpath(), 'a');
        EXPECT_FALSE(m.container.modifySTCOIndex(file, c.delta));
        EXPECT_EQ(m.bytes(), m.original);
    }
}

TEST(ChunkOffsets, ThirtyTwoBitOffsetsNeverWrapPastFourGigabytes) {
    // A sparse file a little over 4 GiB: the co64 entry may go there, the
    // stco entry may not, so neither table is written.
    const Bytes movie = tablesMovie({fullBox("stco", 0, 0, be32(1) + be32(0xFFFFFF00u)),
                                     fullBox("co64", 0, 0, be32(1) + be64(0xFFFFFF00u))});
    MovieFile m(movie);
    ASSERT_EQ(::truncate(m.path.c_str(), (off_t(1) << 32) + 4096), 0);
    m.container.attach(m.wpath());
    {
        MP4::BinFile file(m.wpath(), 'a');
        EXPECT_FALSE(m.container.modifySTCOIndex(file, 0x200));
    }
    Bytes head(movie.size(), '\0');
    {
        MP4::BinFile file(m.wpath(), 'r');
        ASSERT_TRUE(file.readBytes(reinterpret_cast<uint8_t*>(head.data()), head.size()));
    }
    EXPECT_EQ(head, movie);
}

TEST(ChunkOffsets, TheSpatialTrackIsSeparateFromTheOrdinaryTracks) {
    const std::string spatialId("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);
    const Bytes katr = container(
        "KATR", {container("mdia", {container("minf", {container("stbl", {co64({40})})})})});
    const Bytes movie = buildMovie({}) + uuidBox(spatialId, box("KADT", "pcm") + katr);
    MovieFile m(movie);
    const auto ordinary = chunkOffsets(m.path);
    {
        MP4::BinFile file(m.wpath(), 'a');
        EXPECT_TRUE(m.container.modifySpatialTrakSTCOIndex(file, 5));
    }
    EXPECT_EQ(chunkOffsets(m.path), ordinary);
    EXPECT_NE(m.bytes().find(be64(45)), std::string::npos);
    {
        MP4::BinFile file(m.wpath(), 'a');
        EXPECT_TRUE(m.container.modifySTCOIndex(file, 5));
    }
    EXPECT_EQ(chunkOffsets(m.path), shiftedBy(ordinary, 5));
    EXPECT_NE(m.bytes().find(be64(45)), std::string::npos);
}
