// Size and chunk-offset fix-ups: what they write, and what they refuse to
// write when the tables do not hold what they claim.
#include <gtest/gtest.h>
#include <unistd.h>

#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

// Every byte moved on by delta.
MP4::Container::OffsetMap shiftBy(uint64_t delta) {
    return [delta](uint64_t from, uint64_t& to) {
        to = from + delta;
        return true;
    };
}

// moov > trak > mdia > minf > stbl > the given tables
Bytes tablesMovie(const Bytes& tables) {
    return box("ftyp", "isom") + box("moov", box("trak", box("mdia", box("minf", box("stbl", tables))))) +
           box("mdat", Bytes(64, 'd'));
}

template <typename Fn>
bool withFile(MovieFile& m, Fn fn) {
    MP4::BinFile file(m.wpath(), 'a');
    return fn(file);
}

}  // namespace

TEST(ModifyBoxSize, GrowsTheBoxAndEveryBoxAboveItInTheirOwnHeaderWidth) {
    MovieFile m(box("ftyp", "isom") + largeBox("moov", box("udta", box("free", "x"))));
    EXPECT_TRUE(withFile(
        m, [&](auto& f) { return MP4::Container::modifyBoxSize(f, *m.first("moov.udta.free"), 10); }));
    EXPECT_EQ(m.bytes().substr(12, 16), be32(1) + "moov" + be64(33 + 10));
    EXPECT_EQ(m.bytes().substr(28, 4), be32(17 + 10));  // udta
    EXPECT_EQ(m.bytes().substr(36, 4), be32(9 + 10));   // free
    EXPECT_EQ(m.bytes().size(), m.original.size());
    // Sizes below the header or past 32 bits write nothing.
    MovieFile n(box("moov", box("udta")));
    for (int64_t delta : {-9ll, 0xFFFFFFFFll}) {
        EXPECT_FALSE(withFile(
            n, [&](auto& f) { return MP4::Container::modifyBoxSize(f, *n.first("moov.udta"), delta); }));
    }
    EXPECT_EQ(n.bytes(), n.original);
}

// What a commit's mapping of the tables refuses: every table is checked
// before the first is written.
TEST(ChunkOffsets, TablesThatDoNotHoldWhatTheyClaimAreNotWritten) {
    struct Case {
        const char* what;
        Bytes table;
    } cases[] = {{"offset past the file", fullBox("stco", 0, 0, be32(2) + be32(100) + be32(90000))},
                 {"no entry count", box("stco", "\0\0")}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        MovieFile m(tablesMovie(c.table));
        EXPECT_FALSE(withFile(m, [&](auto& f) { return m.container.followChunks(f, shiftBy(8)); }));
        EXPECT_EQ(m.bytes(), m.original);
    }
}

TEST(ChunkOffsets, ThirtyTwoBitOffsetsNeverWrapPastFourGigabytes) {
    // A sparse file a little over 4 GiB: the co64 entry may go there, the
    // stco entry may not, so neither table is written.
    const Bytes movie = tablesMovie(fullBox("stco", 0, 0, be32(1) + be32(0xFFFFFF00u)) +
                                    fullBox("co64", 0, 0, be32(1) + be64(0xFFFFFF00u)));
    MovieFile m(movie);
    ASSERT_EQ(::truncate(m.path.c_str(), (off_t(1) << 32) + 4096), 0);
    m.container.attach(m.wpath());
    EXPECT_FALSE(withFile(m, [&](auto& f) { return m.container.followChunks(f, shiftBy(0x200)); }));
    Bytes head(movie.size(), '\0');
    MP4::BinFile file(m.wpath(), 'r');
    ASSERT_TRUE(file.readBytes(reinterpret_cast<uint8_t*>(head.data()), head.size()));
    EXPECT_EQ(head, movie);
}
