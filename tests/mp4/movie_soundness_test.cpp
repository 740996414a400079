// Which movies a rewrite may take: every chunk findable inside one movable
// box, tables that agree, fragments whose runs find their data.
#include <gtest/gtest.h>

#include "mp4/movie_soundness.h"
#include "support/movie_file.h"
#include "tools/builders/box_builder.h"

using namespace testsupport;
using namespace builders;

namespace {

std::string problemOf(const Bytes& bytes) {
    MovieFile m(bytes);
    return MP4::soundnessProblem(m.wpath());
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A fragment of one track: a trun of sizes after a tfhd with flags (and
// base, when the flags say it is there).
Bytes moof(uint32_t tfhdFlags, const std::vector<uint32_t>& sizes, int32_t dataOffset, bool withOffset = true,
           uint64_t base = 0) {
    Bytes tfhd = fullBox("tfhd", 0, tfhdFlags, be32(1) + (tfhdFlags & 1 ? be64(base) : Bytes()));
    Bytes entries;
    for (uint32_t s : sizes) entries += be32(s);
    const uint32_t flags = 0x200 | (withOffset ? 1 : 0);
    Bytes trun = fullBox("trun", 0, flags,
                         be32(uint32_t(sizes.size())) + (withOffset ? be32(uint32_t(dataOffset)) : Bytes()) + entries);
    return box("moof", fullBox("mfhd", 0, 0, be32(1)) + box("traf", tfhd + trun));
}

// With an absolute base, the header names the fragment's own position,
// moved by shift.
Bytes fragmentedMovie(uint32_t tfhdFlags, uint32_t mdatPayload, int64_t shift = 0) {
    const Bytes head = box("ftyp", "iso5") + box("moov", mvhd(0, 0, 1000, 0));
    const Bytes probe = moof(tfhdFlags, {10, 20}, 0);
    const Bytes fragment =
        moof(tfhdFlags, {10, 20}, int32_t(probe.size() + 8), true, uint64_t(int64_t(head.size()) + shift));
    return head + fragment + box("mdat", Bytes(mdatPayload, 'x'));
}

}  // namespace

TEST(Soundness, AnyLayoutOfWholeBoxesIsSound) {
    for (bool use64 : {false, true}) {
        const MovieShape shape{.moovFirst = false, .use64 = use64};
        EXPECT_EQ(problemOf(buildMovie(shape)), "");
        EXPECT_EQ(problemOf(buildLaidOutMovie(shape, {box("ftyp", "isom"), "mdat64", box("free", "x"), "mdat",
                                                      "moov", box("skip")})),
                  "");
        EXPECT_EQ(problemOf(buildLaidOutMovie(shape, {box("ftyp", "isom"), "moov", "mdat", "mdat"})), "");
    }
    EXPECT_EQ(problemOf(fragmentedMovie(0x020000, 30)), "");
    EXPECT_EQ(problemOf(fragmentedMovie(0, 30)), "");
    EXPECT_EQ(problemOf(fragmentedMovie(0x000001, 30)), "");
}

TEST(Soundness, TruncatedOrMisplacedChunksAreNamedByTrack) {
    const Bytes movie = buildLaidOutMovie({}, {box("ftyp", "isom"), "moov", "mdat"});
    // Cut into the last chunk, which is the video track's.
    const std::string cut = problemOf(movie.substr(0, movie.size() - 10));
    EXPECT_TRUE(contains(cut, "track 1 points past the end of the file: the movie is truncated")) << cut;
    EXPECT_TRUE(contains(problemOf(movie.substr(0, movie.find("mdat") - 4)), "the movie is truncated"));

    // Media data split by a box header in the middle of a chunk.
    MovieFile probe(movie);
    const uint64_t mdatStart = probe.container.mdat()->start;
    Bytes split = movie;
    split.replace(mdatStart, 8, be32(8 + 150) + "mdat");
    split.insert(mdatStart + 8 + 150, box("free", "") + box("mdat", ""));
    split.resize(split.size() - 16);
    EXPECT_FALSE(problemOf(split).empty());

    // A chunk offset into the movie box, which every edit rewrites.
    Bytes inside = movie;
    const size_t stco = inside.find("stco");
    inside.replace(stco + 12, 4, be32(uint32_t(movie.find("moov") + 8)));
    EXPECT_TRUE(contains(problemOf(inside), "track 1 keeps samples inside the movie box"));
}

TEST(Soundness, TablesThatDisagreeOrRunShortAreRefused) {
    const Bytes movie = buildMovie({.withAudio = false});
    Bytes counts = movie;
    const size_t stsz = counts.find("stsz");
    // One sample fewer in stsz than stsc and stts give the chunks.
    counts.replace(stsz + 12, 4, be32(5));
    EXPECT_TRUE(contains(problemOf(counts), "disagree on its number of samples"));
    Bytes chunks = movie;
    chunks.replace(chunks.find("stco") + 8, 4, be32(1000));
    EXPECT_TRUE(contains(problemOf(chunks), "cut short"));
    EXPECT_TRUE(contains(problemOf(box("ftyp", "isom") + box("free")), "no movie box"));
}

TEST(Soundness, FragmentsMustBeWhole) {
    // A base that names the wrong place (as when boxes were put in front of
    // the fragments without following it).
    EXPECT_TRUE(contains(problemOf(fragmentedMovie(0x000001, 30, 104)), "the movie is truncated"));
    EXPECT_TRUE(contains(problemOf(fragmentedMovie(0x000001, 30, -4)), "header of a box"));
    EXPECT_TRUE(contains(problemOf(fragmentedMovie(0x020000, 20)), "the movie is truncated"));
    // A fragment before the movie box would be parted from its data.
    const Bytes late = box("ftyp", "iso5") + moof(0x020000, {4}, 0, false) + box("mdat", "abcd") +
                       box("moov", mvhd(0, 0, 1000, 0));
    EXPECT_TRUE(contains(problemOf(late), "after its fragments"));
    // Garbage inside a fragment is refused, never read past.
    Bytes broken = fragmentedMovie(0x020000, 30);
    broken.replace(broken.find("traf") - 4, 4, be32(0xFFFF));
    EXPECT_TRUE(contains(problemOf(broken), "damaged"));
}

TEST(Soundness, AuxiliaryInformationMustBeFoundInTheFile) {
    // A track whose sample table finds its auxiliary information (as an
    // encrypted track its initialisation vectors) at absolute offsets.
    auto movie = [](uint32_t count, int64_t from) {
        auto head = [count](uint32_t offset) {
            const Bytes saio = fullBox("saio", 0, 0, be32(count) + be32(offset));
            return box("ftyp", "isom") +
                   box("moov", mvhd(0, 0, 1000, 0) + box("trak", box("mdia", box("minf", box("stbl", saio)))));
        };
        const uint64_t payload = head(0).size() + 8;
        return head(uint32_t(int64_t(payload) + from)) + box("mdat", "initialisation vectors");
    };
    EXPECT_EQ(problemOf(movie(1, 0)), "");
    EXPECT_TRUE(contains(problemOf(movie(1, 100)), "track 1's auxiliary information points past the end"));
    EXPECT_TRUE(contains(problemOf(movie(1, -4)), "track 1's auxiliary information lies outside every box"));
    EXPECT_TRUE(contains(problemOf(movie(3, 0)), "track 1's auxiliary-information table is damaged"));
}
