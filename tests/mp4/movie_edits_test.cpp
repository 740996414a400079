// The edits of the movie box and the file around it, in every layout: the
// relayout, time stamps, user data, location boxes, the uuid boxes, and
// several of them batched into one copy.
#include <gtest/gtest.h>

#include <algorithm>

#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "tools/builders/spatial_builder.h"
#include "support/movie_file.h"
#include "support/movie_layouts.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

std::vector<std::string> topLevelTypes(MP4::Container& c) {
    std::vector<std::string> types;
    for (const auto& child : c.root()->children) types.push_back(child->name());
    return types;
}

std::vector<std::string> boxesBut(const std::string& type, MP4::Container& c) {
    auto types = topLevelTypes(c);
    types.erase(std::remove(types.begin(), types.end(), type), types.end());
    return types;
}

// Where each media data box starts within its page, in file order.
std::vector<uint64_t> mediaPlaces(MP4::Container& c) {
    std::vector<uint64_t> places;
    for (const auto& child : c.root()->children) {
        if (child->isType(MP4::fourcc("mdat"))) places.push_back(child->start % MP4::kMediaAlignment);
    }
    return places;
}

ByteArray bytesOf(const Bytes& b) { return ByteArray(b.data(), b.size()); }

}  // namespace

TEST(MoovFirst, GivesTheBytesOfAMovieBuiltThatWayOrNothingForBrokenTables) {
    for (bool use64 : {false, true}) {
        SCOPED_TRACE(use64 ? "co64" : "stco");
        const MovieShape shape{.moovFirst = false, .use64 = use64};
        MovieFile m(buildMovie(shape));
        const Bytes ftyp = m.original.substr(0, m.first("ftyp")->size);
        const uint64_t mdat = m.container.mdat()->start;
        // The media data keeps its place within the page behind a free box.
        const ByteArray padding = MP4::freeBox(MP4::alignmentPadding(mdat, mdat + m.container.moov()->size));
        EXPECT_TRUE(m.container.isMdatFirst());
        EXPECT_TRUE(m.container.moovFirst());
        EXPECT_FALSE(m.container.isMdatFirst());
        EXPECT_EQ(m.bytes(), buildLaidOutMovie(shape, {ftyp, "moov",
                                                       Bytes(padding.view()), "mdat"}));
        EXPECT_FALSE(m.temporaryLeft());
    }
    // A chunk table claiming far more than it holds: nothing is written.
    Bytes movie = buildMovie({.moovFirst = false, .withAudio = false});
    movie.replace(movie.find("stco") + 8, 4, be32(100000));
    MovieFile m(movie);
    ConsoleCapture console;
    EXPECT_FALSE(m.container.moovFirst());
    EXPECT_EQ(m.bytes(), movie);
    EXPECT_FALSE(m.temporaryLeft());
}

TEST(MoovFirst, EveryChunkMovesWithItsOwnBytesAndASpatialBlockStaysLast) {
    // A box between the media data and the movie box goes in front of the
    // movie box, so the chunks move by both sizes.
    const Bytes movie = buildMovie({.moovFirst = false});
    MovieFile probe(movie);
    const uint64_t moovSize = probe.container.moov()->size, mdatEnd = probe.container.mdat()->end();
    const Bytes block = uuidBox(
        kSpatialDataUuid, box("KADT", "pcm") + box("KATR", box("mdia", box("minf", box("stbl", co64({9}))))));
    const Bytes between = box("free", "between");
    MovieFile m(movie.substr(0, mdatEnd) + between + movie.substr(mdatEnd) + block);
    const auto before = chunkOffsets(m.path);
    const uint64_t mdat = m.container.mdat()->start;
    const uint64_t padding = MP4::alignmentPadding(mdat, mdat + moovSize + between.size());
    EXPECT_TRUE(m.container.moovFirst());
    EXPECT_EQ(topLevelTypes(m.container),
              (std::vector<std::string>{"ftyp", "free", "moov", "free", "mdat", "uuid"}));
    auto expected = before;
    for (auto& track : expected) {
        for (auto& o : track) o += moovSize + between.size() + padding;
    }
    EXPECT_EQ(chunkOffsets(m.path), expected);
    EXPECT_EQ(allSamples(m.path), movieSamples({}));
    EXPECT_EQ(m.bytes().substr(m.bytes().size() - block.size()), block);
}

TEST(MoovFirst, KeepsEveryMediaDataBoxAndEverySampleInAnyLayout) {
    const Bytes free = box("free", "gap"), skip = box("skip", ""), wide = box("wide"),
                uuid = uuidBox("0123456789abcdef", "other writer"), meta = fullBox("meta", 0, 0, box("hdlr", "x"));
    const std::vector<std::vector<Bytes>> layouts = {
        {box("ftyp", "isom"), "mdat", free, "moov"},
        {box("ftyp", "isom"), "mdat", free, "mdat", skip, "moov"},
        {box("ftyp", "isom"), wide, "mdat64", uuid, "mdat", "moov", meta},
        {box("ftyp", "isom"), "mdat", "moov", "mdat", free},
        {box("ftyp", "isom"), free, "mdat", "mdat", "mdat", "moov"},
    };
    for (bool use64 : {false, true}) {
        for (size_t i = 0; i < layouts.size(); ++i) {
            SCOPED_TRACE(std::string(use64 ? "co64" : "stco") + ", layout " + std::to_string(i));
            const MovieShape shape{.moovFirst = false, .use64 = use64};
            MovieFile m(buildLaidOutMovie(shape, layouts[i]));
            ASSERT_EQ(allSamples(m.path), movieSamples(shape));
            auto types = boxesBut("free", m.container);
            const auto places = mediaPlaces(m.container);
            EXPECT_TRUE(m.container.moovFirst());
            EXPECT_FALSE(m.container.isMdatFirst());
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
            // Every box is still there but for free boxes taken or added as
            // padding, and every media data box keeps its place in the page.
            auto after = boxesBut("free", m.container);
            std::sort(types.begin(), types.end());
            std::sort(after.begin(), after.end());
            EXPECT_EQ(after, types);
            EXPECT_EQ(mediaPlaces(m.container), places);
            EXPECT_LE(m.bytes().size(), m.original.size() + places.size() * MP4::kLargestPadding);
            EXPECT_FALSE(m.temporaryLeft());
        }
    }
}

TEST(MovieEdits, ChunksOnBothSidesOfTheMovieBoxKeepTheirSamplesWhenItGrows) {
    const MovieShape shape{.moovFirst = false};
    MovieFile m(buildLaidOutMovie(shape, {box("ftyp", "isom"), "mdat", box("free", "x"), "moov", "mdat"}));
    EXPECT_TRUE(m.container.replaceUdta(40, bytesOf(box("udta", box("note", Bytes(24, 'c'))))));
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
    EXPECT_NE(m.bytes().find(Bytes(24, 'c')), Bytes::npos);
}

TEST(TimeStamp, EveryHeaderTakesTheCreationTimeInItsVersionsWidth) {
    // Version 1 movie header, a version 0 and a version 1 track; a second
    // movie box is not the movie.
    auto trak = [](uint8_t v) {
        return container("trak", {tkhd(v, 5, 0, 0), container("mdia", {mdhd(v, 5, 1000, 10)})});
    };
    MovieFile m(box("ftyp", "isom") + box("moov", mvhd(1, 5, 1000, 10) + trak(0) + trak(1)) +
                box("moov", mvhd(0, 5, 1000, 10)));
    const uint64_t time = 0x0000000A11223344ull;
    EXPECT_TRUE(m.container.updateTimeStamp(time));
    m.container.attach(m.wpath());  // read again
    std::vector<uint64_t> stamps;
    m.container.find("moov.trak.tkhd",
                     [&](MP4::BOX& b) { return stamps.push_back(dynamic_cast<MP4::TKHD&>(b).creationTime), true; });
    m.container.find("moov.trak.mdia.mdhd",
                     [&](MP4::BOX& b) { return stamps.push_back(dynamic_cast<MP4::MDHD&>(b).creationTime), true; });
    EXPECT_EQ(stamps, (std::vector<uint64_t>{0x11223344, time, 0x11223344, time}));
    // The modification time stays; so does the second movie box, the last in the file.
    const Bytes b = m.bytes();
    EXPECT_EQ(b.substr(b.find("mvhd") + 4, 20), be32(0x01000000) + be64(time) + be64(5));
    EXPECT_EQ(b.substr(b.rfind("mvhd")), m.original.substr(m.original.rfind("mvhd")));

    // Too short for the field, or with a 64-bit size: left alone.
    for (const Bytes& tkhd : {fullBox("tkhd", 0, 0, "ab"), largeBox("tkhd", Bytes(84, '\0'))}) {
        MovieFile tiny(box("moov", box("trak", tkhd)) + box("free", "after"));
        EXPECT_FALSE(tiny.container.updateTimeStamp(0xFFFFFFFF));
        EXPECT_EQ(tiny.bytes(), tiny.original);
    }
}

TEST(ReplaceUdta, ReplacesOrAppendsTheUserDataAndKeepsEverySample) {
    const Bytes udta = box("udta", box("KMKN", Bytes(40, 'k')) + box("free", "pad"));
    for (MovieShape shape : kLayouts) {
        for (bool withUdta : {true, false}) {
            shape.withUdta = withUdta;
            shape.udtaChildren = withUdta ? box("@mod", "old model") : "";
            SCOPED_TRACE(layoutName(shape));
            MovieFile m(buildMovie(shape));
            const uint64_t moovStart = m.container.moov()->start;
            const auto offsets = chunkOffsets(m.path);
            EXPECT_TRUE(m.container.replaceUdta(udta.size(), bytesOf(udta)));
            EXPECT_EQ(m.first("moov.udta")->end(), m.container.moov()->end());
            EXPECT_EQ(m.payload("moov.udta"), udta.substr(8));
            EXPECT_EQ(m.bytes().find("old model"), std::string::npos);
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
            if (!shape.moovFirst) {
                EXPECT_EQ(chunkOffsets(m.path), offsets);
                EXPECT_EQ(m.bytes().substr(0, moovStart), m.original.substr(0, moovStart));
            }
        }
    }
}

TEST(ReplaceUdta, BadBytesAndBadMovieBoxesAreLeftAlone) {
    const Bytes udta = box("udta", "data");
    MovieFile m(buildMovie({}));
    EXPECT_FALSE(m.container.replaceUdta(9, bytesOf(box("free", "x"))));
    EXPECT_FALSE(m.container.replaceUdta(udta.size() + 1, bytesOf(udta)));
    EXPECT_EQ(m.bytes(), m.original);
    // A movie box of mvhd and one trak only; a user-data box running past the movie box.
    MovieFile few(buildMovie({.withAudio = false, .withUdta = false}));
    MovieFile past(box("ftyp", "isom") + box("moov", mvhd(0, 1, 1000, 1) + be32(400) + "udta" + "abc") +
                   box("mdat", "data"));
    for (MovieFile* f : {&few, &past}) {
        ConsoleCapture console;
        EXPECT_FALSE(f->container.replaceUdta(udta.size(), bytesOf(udta)));
        EXPECT_EQ(f->bytes(), f->original);
    }
}

TEST(MovieEdits, AppendsAndTimeStampsInOneCopyGiveTheBytesOfSeparateSteps) {
    const Bytes lastToTheEnd = be32(0) + "free" + "rest of the file";
    const std::vector<std::vector<Bytes>> layouts = {
        {box("ftyp", "isom"), "mdat", box("free", "x"), "moov"},
        {box("ftyp", "isom"), "moov", "mdat", "mdat"},
        {box("ftyp", "isom"), "mdat", "moov", lastToTheEnd},
    };
    for (size_t i = 0; i < layouts.size(); ++i) {
        SCOPED_TRACE("layout " + std::to_string(i));
        const MovieShape shape{.moovFirst = false};
        const Bytes movie = buildLaidOutMovie(shape, layouts[i]);
        MovieFile separate(movie);
        (void)separate.container.moovFirst();
        ASSERT_TRUE(separate.container.appendTopLevel(L"first", bytesOf(uuidBox("0123456789abcdef", "<x:xmpmeta/>"))));
        ASSERT_TRUE(separate.container.appendTopLevel(L"second", bytesOf(uuidBox("fedcba9876543210", "axis"))));
        ASSERT_TRUE(separate.container.updateTimeStamp(0x0000000A11223344ull));

        MovieFile batched(movie);
        batched.container.beginEdits();
        (void)batched.container.moovFirst();
        ASSERT_TRUE(batched.container.appendTopLevel(L"first", bytesOf(uuidBox("0123456789abcdef", "<x:xmpmeta/>"))));
        ASSERT_TRUE(batched.container.appendTopLevel(L"second", bytesOf(uuidBox("fedcba9876543210", "axis"))));
        ASSERT_TRUE(batched.container.updateTimeStamp(0x0000000A11223344ull));
        ASSERT_TRUE(batched.container.commitEdits());
        EXPECT_EQ(batched.bytes(), separate.bytes());
        EXPECT_EQ(allSamples(batched.path), movieSamples(shape));
        EXPECT_FALSE(batched.temporaryLeft());
    }
}
