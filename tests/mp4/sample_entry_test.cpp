// Boxes placed in a video sample entry after its configuration box.
#include <gtest/gtest.h>

#include <string>

#include "mp4/sample_entry.h"
#include "tools/builders/box_builder.h"

namespace {

using builders::be32;
using builders::box;

std::string entry(const std::string& children) { return box("avc1", std::string(78, '\0') + children); }
ByteArray bytes(const std::string& s) { return ByteArray(s.data(), s.size()); }

// What the entry's children become, its header and fields left out (the
// entry's size is the holders' business, not the rewrite's).
std::string children(const std::string& e) { return e.substr(86); }

// The entry with the rewrite made.
std::string rewritten(const std::string& source, const std::string& boxes, bool* made = nullptr) {
    MP4::EntryRewrite rewrite;
    const bool ok = MP4::placeAfterConfiguration(reinterpret_cast<const uint8_t*>(source.data()), source.size(),
                                                 bytes(boxes), rewrite);
    if (made != nullptr) *made = ok;
    if (!ok) return source;
    return source.substr(0, rewrite.from) + std::string(rewrite.bytes.view()) + source.substr(rewrite.to);
}

const std::string kAvcC = box("avcC", "\x01\x42\xc0\x1e");
const std::string kPasp = box("pasp", std::string(8, '\1'));
const std::string kSt3d = box("st3d", std::string(5, '\0'));
const std::string kSv3d = box("sv3d", box("svhd", std::string(5, '\0')));

TEST(SampleEntryPlacement, NewBoxesGoRightAfterTheConfigurationAndBeforeTheOptionalOnes) {
    const std::string source = entry(kAvcC + kPasp);
    const std::string made = rewritten(source, kSt3d + kSv3d);
    EXPECT_EQ(made.substr(0, 86), source.substr(0, 86));
    EXPECT_EQ(children(made), kAvcC + kSt3d + kSv3d + kPasp);
    EXPECT_EQ(children(rewritten(entry(kAvcC), kSt3d)), kAvcC + kSt3d);
    const std::string hevc = box("hvc1", std::string(78, '\0') + box("hvcC", "x") + kPasp);
    EXPECT_EQ(children(rewritten(hevc, kSv3d)), box("hvcC", "x") + kSv3d + kPasp);
}

TEST(SampleEntryPlacement, BoxesOfTheSameTypesGiveWayWhereverTheyStood) {
    const std::string oldSt3d = box("st3d", std::string(5, '\2'));
    const std::string oldSv3d = box("sv3d", std::string(40, '\3'));
    const std::string expected = kAvcC + kSt3d + kSv3d + kPasp;
    EXPECT_EQ(children(rewritten(entry(kAvcC + oldSt3d + oldSv3d + kPasp), kSt3d + kSv3d)), expected);
    // After an optional box, or even before the configuration.
    EXPECT_EQ(children(rewritten(entry(kAvcC + kPasp + oldSv3d + oldSt3d), kSt3d + kSv3d)), expected);
    EXPECT_EQ(children(rewritten(entry(oldSv3d + kAvcC + kPasp), kSt3d + kSv3d)), expected);
    // Only the types given: an st3d stays when only sv3d is placed.
    EXPECT_EQ(children(rewritten(entry(kAvcC + oldSt3d + oldSv3d), kSv3d)), kAvcC + kSv3d + oldSt3d);
}

TEST(SampleEntryPlacement, ABoxOfOursCutOffAtTheEndIsReplacedAndOtherDamageKept) {
    const std::string cut = entry(kAvcC) + be32(400) + "sv3d" + "abc";
    EXPECT_EQ(children(rewritten(cut, kSv3d)), kAvcC + kSv3d);
    // Bytes we cannot read that are not ours stay where they are.
    const std::string junk = entry(kAvcC) + be32(400) + "free" + "abc";
    EXPECT_EQ(children(rewritten(junk, kSv3d)), kAvcC + kSv3d + be32(400) + "free" + "abc");
}

TEST(SampleEntryPlacement, NothingIsPlacedWithoutAConfigurationBoxOrWholeBoxes) {
    bool made = true;
    rewritten(entry(kPasp), kSv3d, &made);
    EXPECT_FALSE(made);
    rewritten(entry(kAvcC), kSv3d + "xyz", &made);
    EXPECT_FALSE(made);
    rewritten(entry(kAvcC), "", &made);
    EXPECT_FALSE(made);
    rewritten(entry(kAvcC).substr(0, 40), kSv3d, &made);
    EXPECT_FALSE(made);
}

TEST(SampleEntryPlacement, ChildWalkStopsAtHeadersThatLie) {
    const std::string block = box("aaaa", "1") + be32(4) + "bbbb" + "zzzz";
    uint64_t stopped = 0;
    const auto spans = MP4::childSpans(reinterpret_cast<const uint8_t*>(block.data()), block.size(), 0, stopped);
    ASSERT_EQ(spans.size(), 1u);
    EXPECT_EQ(stopped, 9u);
    // A large size and a size of 0 (to the end).
    const std::string large = be32(1) + "cccc" + std::string(4, '\0') + be32(18) + "xy" + be32(0) + "dddd";
    const auto more = MP4::childSpans(reinterpret_cast<const uint8_t*>(large.data()), large.size(), 0, stopped);
    ASSERT_EQ(more.size(), 2u);
    EXPECT_EQ(more[0].headerSize, 16u);
    EXPECT_EQ(more[1].size, 8u);
    EXPECT_EQ(stopped, large.size());
    EXPECT_TRUE(MP4::isVideoSampleEntry(MP4::fourcc("hev1")));
    EXPECT_FALSE(MP4::isVideoSampleEntry(MP4::fourcc("mp4a")));
}

}  // namespace
