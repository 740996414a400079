// Media data keeps its place within a page when edits move it: the padding
// arithmetic, the free box in front of the media data in either copy, and a
// movie edited again getting its padding resized rather than more of it.
#include <gtest/gtest.h>

#include "mp4/box_edits.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"
#include "tools/builders/box_builder.h"

using namespace testsupport;
using namespace builders;

namespace {

constexpr uint64_t kPage = MP4::kMediaAlignment;

struct Top {
    std::string type;
    uint64_t start, size;
};

std::vector<Top> topLevel(MP4::Container& c) {
    std::vector<Top> boxes;
    for (const auto& child : c.root()->children) boxes.push_back({child->name(), child->start, child->size});
    return boxes;
}

// The free box right in front of the first media data box: its size, or 0.
uint64_t paddingInFront(MP4::Container& c) {
    const auto boxes = topLevel(c);
    for (size_t i = 1; i < boxes.size(); ++i) {
        if (boxes[i].type == "mdat") return boxes[i - 1].type == "free" ? boxes[i - 1].size : 0;
    }
    return 0;
}

size_t count(MP4::Container& c, const std::string& type) {
    size_t n = 0;
    for (const auto& b : topLevel(c)) n += b.type == type;
    return n;
}

// The movie's user data grown to size bytes (the shape's own is 124).
bool userDataOf(MovieFile& m, uint64_t size) {
    const Bytes udta = box("udta", box("note", Bytes(size - 16, 'n')));
    return m.container.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())).ok();
}

const MovieShape kShape{.moovFirst = true, .udtaChildren = box("note", Bytes(108, 'n'))};

}  // namespace

TEST(MediaAlignment, PaddingBringsAnyLandingBackWithinThePageWithTheSmallestFreeBox) {
    for (uint64_t source : {uint64_t(0), uint64_t(40), 5 * kPage + 4095}) {
        for (uint64_t landing = 0; landing < source + 3 * kPage; ++landing) {
            const uint64_t p = MP4::alignmentPadding(source, landing);
            ASSERT_EQ((landing + p) % kPage, source % kPage) << source << " from " << landing;
            ASSERT_EQ(p == 0, landing % kPage == source % kPage) << source << " from " << landing;
            ASSERT_TRUE(p == 0 || (p >= 8 && p <= MP4::kLargestPadding)) << p;
        }
    }
    EXPECT_EQ(MP4::freeBox(12).view(), be32(12) + "free" + Bytes(4, '\0'));
    for (uint64_t size : {uint64_t(0), uint64_t(7), MP4::kLargestPadding + 1}) EXPECT_TRUE(MP4::freeBox(size).empty());
}

TEST(MediaAlignment, MovedMediaDataKeepsItsPlaceWithinThePageAndEverySample) {
    // Shifts by a whole page, by 1 and 7 bytes (a page more of padding), and
    // a shrinking movie box.
    for (int64_t shift : {4096, 1, 7, 8, 100, -20}) {
        SCOPED_TRACE("shift " + std::to_string(shift));
        MovieFile m(buildMovie(kShape));
        const uint64_t udta = m.first("moov.udta")->size;
        const uint64_t mdat = m.container.mdat()->start;
        ASSERT_EQ(udta, 124u);
        ASSERT_TRUE(userDataOf(m, udta + shift));
        const uint64_t padding = MP4::alignmentPadding(mdat, mdat + shift);
        EXPECT_EQ(m.container.mdat()->start % kPage, mdat % kPage);
        EXPECT_EQ(paddingInFront(m.container), padding);
        EXPECT_EQ(m.bytes().size(), m.original.size() + shift + padding);
        EXPECT_EQ(allSamples(m.path), movieSamples(kShape));
    }
}

TEST(MediaAlignment, EditingAnOutputAgainResizesItsPaddingAndCanGiveBackTheSource) {
    MovieFile m(buildMovie(kShape));
    const uint64_t mdat = m.container.mdat()->start;
    ASSERT_TRUE(userDataOf(m, 224));
    const Bytes once = m.bytes();
    ASSERT_EQ(paddingInFront(m.container), 4096u - 100);
    // The same edit again moves nothing.
    ASSERT_TRUE(userDataOf(m, 224));
    EXPECT_EQ(m.bytes(), once);
    for (uint64_t size : {274, 4400, 124 + 4096 + 3}) {
        SCOPED_TRACE(size);
        ASSERT_TRUE(userDataOf(m, size));
        EXPECT_EQ(m.container.mdat()->start % kPage, mdat % kPage);
        EXPECT_EQ(count(m.container, "free"), 1u);
        EXPECT_EQ(m.bytes().size(), m.original.size() + size - 124 + paddingInFront(m.container));
        EXPECT_EQ(allSamples(m.path), movieSamples(kShape));
    }
    // Back to the user data it had: no padding is needed any more.
    ASSERT_TRUE(userDataOf(m, 124));
    EXPECT_EQ(count(m.container, "free"), 0u);
    EXPECT_EQ(m.bytes().size(), m.original.size());
    EXPECT_EQ(allSamples(m.path), movieSamples(kShape));
}

TEST(MediaAlignment, TheRelayoutTakesTheFreeBoxInFrontOfTheMediaDataAlongAsItsPadding) {
    // The 8-byte free box a muxer leaves in front of its media data.
    const MovieShape shape{.moovFirst = false};
    MovieFile m(buildLaidOutMovie(shape, {box("ftyp", "isom"), box("free"), "mdat", "moov"}));
    const uint64_t mdat = m.container.mdat()->start;
    ASSERT_TRUE(m.container.moovFirst());
    std::vector<std::string> types;
    for (const auto& b : topLevel(m.container)) types.push_back(b.type);
    EXPECT_EQ(types, (std::vector<std::string>{"ftyp", "moov", "free", "mdat"}));
    EXPECT_EQ(m.container.mdat()->start % kPage, mdat % kPage);
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
}
