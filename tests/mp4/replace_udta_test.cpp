// Putting a complete user-data box into the movie box.
#include <gtest/gtest.h>

#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

ByteArray bytesOf(const Bytes& b) { return ByteArray(b.data(), b.size()); }

const Bytes kNewUdta = box("udta", box("KMKN", Bytes(40, 'k')) + box("free", "pad"));

}  // namespace

TEST(ReplaceUdta, ReplacesTheUserDataAndKeepsEverySampleInBothLayouts) {
    for (bool moovFirst : {true, false}) {
        for (bool use64 : {false, true}) {
            SCOPED_TRACE(std::string(moovFirst ? "moov first" : "mdat first") +
                         (use64 ? ", co64" : ", stco"));
            const MovieShape shape{.moovFirst = moovFirst, .use64 = use64,
                                 .udtaChildren = box("@mod", "old model")};
            MovieFile m(buildMovie(shape));
            const auto* moov = m.container.moov();
            const uint64_t moovSize = moov->size;
            const uint64_t oldUdta = m.first("moov.udta")->size;
            EXPECT_TRUE(m.container.replaceUdta(kNewUdta.size(), bytesOf(kNewUdta)));
            EXPECT_EQ(m.container.moov()->size, moovSize - oldUdta + kNewUdta.size());
            EXPECT_NE(m.bytes().find(kNewUdta), std::string::npos);
            EXPECT_EQ(m.bytes().find("old model"), std::string::npos);
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
            EXPECT_EQ(m.bytes().size(), m.original.size() - oldUdta + kNewUdta.size());
        }
    }
}

TEST(ReplaceUdta, WithMediaDataFirstOnlyTheMovieBoxSizeChanges) {
    const MovieShape shape{.moovFirst = false};
    MovieFile m(buildMovie(shape));
    const auto offsets = chunkOffsets(m.path);
    const uint64_t moovStart = m.container.moov()->start;
    EXPECT_TRUE(m.container.replaceUdta(kNewUdta.size(), bytesOf(kNewUdta)));
    EXPECT_EQ(chunkOffsets(m.path), offsets);
    EXPECT_EQ(m.bytes().substr(0, moovStart), m.original.substr(0, moovStart));
}

TEST(ReplaceUdta, WithoutUserDataTheBoxIsAppendedToTheMovieBox) {
    const MovieShape shape{.withUdta = false};
    MovieFile m(buildMovie(shape));
    ASSERT_EQ(m.first("moov.udta"), nullptr);
    EXPECT_TRUE(m.container.replaceUdta(kNewUdta.size(), bytesOf(kNewUdta)));
    const auto& moov = static_cast<MP4::NestedBox&>(*m.container.moov());
    ASSERT_FALSE(moov.children.empty());
    EXPECT_EQ(moov.children.back()->name(), "udta");
    EXPECT_EQ(moov.children.back()->size, kNewUdta.size());
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
}

TEST(ReplaceUdta, AMovieBoxWithTooFewChildrenOrBadBytesIsLeftAlone) {
    // mvhd and one trak, no udta.
    MovieFile m(buildMovie({.withAudio = false, .withUdta = false}));
    EXPECT_FALSE(m.container.replaceUdta(kNewUdta.size(), bytesOf(kNewUdta)));
    EXPECT_EQ(m.bytes(), m.original);

    MovieFile n(buildMovie({}));
    const Bytes notUdta = box("free", "x");
    EXPECT_FALSE(n.container.replaceUdta(notUdta.size(), bytesOf(notUdta)));
    EXPECT_FALSE(n.container.replaceUdta(kNewUdta.size() + 1, bytesOf(kNewUdta)));
    Bytes lying = kNewUdta;
    lying.replace(0, 4, be32(9999));
    EXPECT_FALSE(n.container.replaceUdta(lying.size(), bytesOf(lying)));
    EXPECT_EQ(n.bytes(), n.original);
    EXPECT_FALSE(n.temporaryLeft());
}

TEST(ReplaceUdta, AUserDataBoxRunningPastTheMovieBoxIsNotReplaced) {
    const Bytes moov = box("moov", mvhd(0, 1, 1000, 1) + be32(400) + "udta" + "abc");
    MovieFile m(box("ftyp", "isom") + moov + box("mdat", "data"));
    ConsoleCapture console;
    EXPECT_FALSE(m.container.replaceUdta(kNewUdta.size(), bytesOf(kNewUdta)));
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_FALSE(m.temporaryLeft());
    EXPECT_NE(console.text().find("replaceUdta_Replace"), std::string::npos);
}
