// A fragmented movie's absolute positions: the random-access index and the
// base offsets some muxers put in track-fragment headers keep pointing at
// the fragments when the movie box grows, and the index stays the file's
// last box when something is appended.
#include <gtest/gtest.h>

#include "mp4/box_edits.h"
#include "mp4/movie_soundness.h"
#include "support/movie_file.h"
#include "tools/builders/box_builder.h"

using namespace testsupport;
using namespace builders;

namespace {

// A fragment at byte at; with absolute, its header names that position as
// the base of its run (else the base is the fragment by flag).
Bytes fragment(uint32_t sequence, uint64_t at = 0, bool absolute = false) {
    const Bytes tfhd = absolute ? fullBox("tfhd", 0, 0x000001, be32(1) + be64(at)) : fullBox("tfhd", 0, 0x020000, be32(1));
    const Bytes trun = fullBox("trun", 0, 0x201, be32(1) + be32(0) + be32(4));
    Bytes moof = box("moof", fullBox("mfhd", 0, 0, be32(sequence)) + box("traf", tfhd + trun));
    // The run's data offset: from the fragment's start to its mdat payload.
    moof.replace(moof.find("trun") + 12, 4, be32(uint32_t(moof.size() + 8)));
    return moof + box("mdat", "abc" + std::to_string(sequence % 10));
}

// tfra version 1 (64-bit time and offset), one-byte numbers.
Bytes index(const std::vector<uint64_t>& moofs) {
    Bytes entries;
    for (uint64_t o : moofs) entries += be64(0) + be64(o) + "\x01\x01\x01";
    const Bytes tfra = fullBox("tfra", 1, 0, be32(1) + be32(0) + be32(uint32_t(moofs.size())) + entries);
    const uint32_t total = uint32_t(8 + tfra.size() + 16);
    return box("mfra", tfra + fullBox("mfro", 0, 0, be32(total)));
}

struct Fragmented {
    Bytes bytes;
    std::vector<uint64_t> moofs;
};

Fragmented fragmentedMovie(bool absolute = false) {
    Fragmented f;
    f.bytes = box("ftyp", "iso5") + box("moov", mvhd(0, 0, 1000, 0) + box("udta", ""));
    for (uint32_t i = 1; i <= 3; ++i) {
        f.moofs.push_back(f.bytes.size());
        f.bytes += fragment(i, f.bytes.size(), absolute);
    }
    f.bytes += index(f.moofs);
    return f;
}

std::vector<uint64_t> indexedOffsets(const Bytes& b) {
    std::vector<uint64_t> out;
    const size_t tfra = b.rfind("tfra");
    const uint32_t count = uint32_t(uint8_t(b[tfra + 16])) << 24 | uint32_t(uint8_t(b[tfra + 17])) << 16 |
                           uint32_t(uint8_t(b[tfra + 18])) << 8 | uint32_t(uint8_t(b[tfra + 19]));
    for (uint32_t i = 0; i < count; ++i) {
        uint64_t v = 0;
        for (int k = 0; k < 8; ++k) v = v << 8 | uint8_t(b[tfra + 20 + i * 19 + 8 + size_t(k)]);
        out.push_back(v);
    }
    return out;
}

}  // namespace

TEST(FragmentIndex, FollowsTheFragmentsWhenTheMovieBoxGrows) {
    for (const bool absolute : {false, true}) {
        SCOPED_TRACE(absolute ? "absolute bases" : "bases by flag");
        const Fragmented f = fragmentedMovie(absolute);
        MovieFile m(f.bytes);
        const Bytes udta = box("udta", box("note", Bytes(40, 'n')));
        ASSERT_TRUE(m.container.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())));
        const Bytes out = m.bytes();
        const auto offsets = indexedOffsets(out);
        // Padding in front of the first fragment keeps the fragments' media
        // data in its place within the page.
        const uint64_t grown = udta.size() - 8;
        const uint64_t padding = MP4::alignmentPadding(f.moofs[0], f.moofs[0] + grown);
        ASSERT_EQ(offsets.size(), 3u);
        for (size_t i = 0; i < offsets.size(); ++i) {
            EXPECT_EQ(offsets[i], f.moofs[i] + grown + padding);
            EXPECT_EQ(out.substr(offsets[i] + 4, 4), "moof");
            const Bytes own = fragment(uint32_t(i + 1), offsets[i], absolute);
            // The fragment as it would have been written in its new place.
            EXPECT_EQ(out.substr(offsets[i], own.size()), own);
        }
        EXPECT_EQ(MP4::soundnessProblem(m.wpath()), "");
    }
}

TEST(FragmentIndex, StaysLastWhenSomethingIsAppended) {
    const Fragmented f = fragmentedMovie();
    MovieFile m(f.bytes);
    const Bytes appended = uuidBox("0123456789abcdef", "<x:xmpmeta/>");
    ASSERT_TRUE(m.container.appendTopLevel(L"append", ByteArray(appended.data(), appended.size())));
    const Bytes out = m.bytes();
    const Bytes mfra = f.bytes.substr(f.bytes.rfind("mfra") - 4);
    EXPECT_EQ(out.substr(out.size() - mfra.size()), mfra);
    EXPECT_EQ(out.substr(0, f.bytes.size() - mfra.size()), f.bytes.substr(0, f.bytes.size() - mfra.size()));
    EXPECT_NE(out.find("<x:xmpmeta/>"), Bytes::npos);
    EXPECT_EQ(indexedOffsets(out), f.moofs);
}

TEST(FragmentIndex, SegmentIndexKeepsItsDistanceToTheFragment) {
    // A segment index counts from its own end to the fragments it lists, so
    // the padding that keeps the media data in its page goes in front of it.
    const Bytes frag = fragment(1);
    const Bytes sidx = fullBox("sidx", 0, 0,
                               be32(1) + be32(1000) + be32(0) + be32(0) + be16(0) + be16(1) +
                                   be32(uint32_t(frag.size())) + be32(0) + be32(0x90000000));
    const Bytes bytes = box("ftyp", "iso5") + box("moov", mvhd(0, 0, 1000, 0) + box("udta", "")) + sidx + frag;
    MovieFile m(bytes);
    const Bytes udta = box("udta", box("note", Bytes(40, 'n')));
    ASSERT_TRUE(m.container.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())));
    const Bytes out = m.bytes();
    const size_t at = out.find("sidx") - 4;
    EXPECT_EQ(out.substr(at, sidx.size() + frag.size()), sidx + frag);
    const size_t mdat = sidx.size() + frag.find("mdat") - 4;
    EXPECT_EQ((at + mdat) % MP4::kMediaAlignment, (bytes.find("sidx") - 4 + mdat) % MP4::kMediaAlignment);
}
