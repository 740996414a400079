// The three patchers: which bytes they touch, in which byte order, the values
// they refuse to lower, the 0x0109 slot rewrite, and how failures surface.
#include <gtest/gtest.h>

#include "exif_test_util.h"
#include "support/test_files.h"

using namespace testsupport;
using namespace exiftest;

namespace {

// Offsets where a and b differ (same length).
std::vector<size_t> changed(const Bytes& a, const Bytes& b) {
    std::vector<size_t> at;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
        if (a[i] != b[i]) at.push_back(i);
    }
    return at;
}

Bytes projectionPatched(Bytes block, int32_t v) {
    ExifParser::updateProjectionType(u8(block), block.size(), ExifParser::PROJECTION_TYPE(v));
    return block;
}
Bytes zenithPatched(Bytes block, int32_t v) {
    ExifParser::updateSphereAdjZenith(u8(block), block.size(), ExifParser::TOPBOTTOM_CORRECTION_TYPE(v));
    return block;
}
Bytes stabilizationPatched(Bytes block, int32_t v) {
    ExifParser::updateVideoStabilization(u8(block), block.size(), ExifParser::VIDEO_STABILIZATION(v));
    return block;
}

// The 4-byte value field of the PANOX entry with this tag, found by a scan
// of the block for the entry's first 8 bytes.
size_t valueField(const Bytes& block, const Bytes& entryHead) {
    const size_t at = block.find(entryHead);
    EXPECT_NE(at, Bytes::npos);
    return at + 8;
}

const Bytes kProjectionEntryBE = be16(0x0001) + be16(3) + be32(1);
const Bytes kZenithEntryBE = be16(0x0007) + be16(3) + be32(1);

TEST(UpdateProjectionType, WritesTheShortIntoItsValueFieldOnly) {
    const Bytes before = makerExifBlock(MakerExif{.projectionType = 2});
    const Bytes after = projectionPatched(before, 1);
    ASSERT_EQ(after.size(), before.size());
    const size_t field = valueField(before, kProjectionEntryBE);
    EXPECT_EQ(changed(before, after), (std::vector<size_t>{field + 1}));  // 00 02 -> 00 01
    EXPECT_EQ(after.substr(field, 4), be32(0x00010000));
    EXPECT_EQ(readKMKN(after).record.projectionType, 1u);
}

TEST(UpdateProjectionType, LittleEndianBlocksGetTheShiftedValueLittleEndian) {
    const Bytes before = makerExifBlock(MakerExif{.order = ByteOrder::Little, .projectionType = 2});
    const Bytes after = projectionPatched(before, 1);
    const size_t field = valueField(before, Bytes("\x01\x00\x03\x00\x01\x00\x00\x00", 8));
    EXPECT_EQ(before.substr(field, 4), Bytes("\x02\x00\x00\x00", 4));
    EXPECT_EQ(after.substr(field, 4), Bytes("\x00\x00\x01\x00", 4));  // 0x00010000
    EXPECT_EQ(changed(before, after).size(), 2u);
}

TEST(UpdateProjectionType, BareMakerNoteAndAbsentTag) {
    const Bytes bare = makerNoteBlock(MakerExif{.projectionType = 5});
    EXPECT_EQ(readKMKN(projectionPatched(bare, 1)).record.projectionType, 1u);

    const Bytes without = makerExifBlock(MakerExif{.projectionType = {}});
    EXPECT_EQ(projectionPatched(without, 1), without);  // nothing to patch is no error
}

TEST(UpdateProjectionType, AnyFailureBecomesOneMessage) {
    MakerExif asLong;
    asLong.projectionType.reset();
    asLong.extraPanoxEntries = {longEntry(0x0001, 2)};
    Bytes badId = makerExifBlock();
    badId[3] = 0;
    Ifd noPanox = makerIfd(MakerExif{});
    noPanox.entries.pop_back();
    for (const Bytes& block : {makerExifBlock(asLong), badId, Bytes("\0\0", 2), Bytes(),
                               makerSignature() + serializeIfd(noPanox, 8, ByteOrder::Big)}) {
        Bytes copy = block;
        EXPECT_EQ(thrown([&] { projectionPatched(copy, 1); }), "ProjectionType override failed.");
    }
}

TEST(UpdateSphereAdjZenith, AStoredOneIsNeverTurnedOff) {
    struct Case {
        uint16_t stored;
        int32_t requested;
        uint32_t field;
    };
    for (const Case c : {Case{1, 0, 0x00010000}, Case{0, 0, 0x00000000}, Case{0, 1, 0x00010000},
                         Case{1, -1, 0xFFFF0000}, Case{0, -1, 0xFFFF0000}}) {
        const Bytes before = makerExifBlock(MakerExif{.topBottomCorrection = c.stored});
        const Bytes after = zenithPatched(before, c.requested);
        EXPECT_EQ(after.substr(valueField(before, kZenithEntryBE), 4), be32(c.field))
            << c.stored << " " << c.requested;
        EXPECT_EQ(after.size(), before.size());
    }
}

TEST(UpdateSphereAdjZenith, StoredOneIsRecognisedWhateverTheLowBytes) {
    MakerExif x;
    x.topBottomCorrection.reset();
    x.extraPanoxEntries = {rawEntry(0x0007, tiff::kShort, 1, 0x0001ABCD)};
    const Bytes before = makerExifBlock(x);
    const Bytes after = zenithPatched(before, 0);
    EXPECT_EQ(after.substr(valueField(before, kZenithEntryBE), 4), be32(0x00010000));
}

TEST(UpdateSphereAdjZenith, WrongEntryFails) {
    MakerExif x;
    x.topBottomCorrection.reset();
    x.extraPanoxEntries = {rawEntry(0x0007, tiff::kShort, 2, 0)};
    Bytes block = makerExifBlock(x);
    EXPECT_EQ(thrown([&] { zenithPatched(block, 1); }), "SphereAdjZenith override failed.");
}

TEST(UpdateVideoStabilization, ZeroAndMinusOneNeverTouchTheBlock) {
    for (const Bytes& block : {makerExifBlock(MakerExif{.videoStabilization = 4}), Bytes("garbage")}) {
        EXPECT_EQ(stabilizationPatched(block, 0), block);
        EXPECT_EQ(stabilizationPatched(block, -1), block);
    }
}

TEST(UpdateVideoStabilization, ExistingEntryGetsTheValue) {
    MakerExif x;
    x.videoStabilization = 1;
    x.stabilizationSlot = true;  // present too, but 0x1014 wins
    const Bytes before = makerExifBlock(x);
    ConsoleCapture console;
    const Bytes after = stabilizationPatched(before, 5);
    EXPECT_EQ(console.text(), "");
    EXPECT_EQ(changed(before, after).size(), 1u);
    const Read r = readKMKN(after);
    EXPECT_EQ(r.record.videoStabilization, 5u);
    EXPECT_TRUE(r.record.stabilizationFlag2);
}

TEST(UpdateVideoStabilization, SlotEntryIsRewrittenInPlaceAndSaysSo) {
    for (const ByteOrder order : {ByteOrder::Big, ByteOrder::Little}) {
        MakerExif x;
        x.order = order;
        x.stabilizationSlot = true;
        const Bytes before = makerExifBlock(x);
        ConsoleCapture console;
        const Bytes after = stabilizationPatched(before, 3);
        EXPECT_EQ(console.text(), "Overwrite VideoStabilization(1014) into 0109.\n");
        ASSERT_EQ(after.size(), before.size());

        const Bytes slotBE = be16(0x0109) + be16(10) + be32(3);
        const Bytes slotLE("\x09\x01\x0A\x00\x03\x00\x00\x00", 8);
        const size_t entry = before.find(order == ByteOrder::Big ? slotBE : slotLE);
        ASSERT_NE(entry, Bytes::npos);
        const Bytes expected = order == ByteOrder::Big
                                   ? be16(0x1014) + be16(3) + be32(1) + be32(0x00030000)
                                   : Bytes("\x14\x10\x03\x00\x01\x00\x00\x00\x00\x00\x03\x00", 12);
        EXPECT_EQ(after.substr(entry, 12), expected);
        // Only that entry changed; its old rationals stay where they were.
        for (size_t at : changed(before, after)) EXPECT_TRUE(at >= entry && at < entry + 12) << at;
    }
    // Read back: the entry stands between 0x0007 and nothing, unsorted or not.
    const Read r = readKMKN(stabilizationPatched(makerExifBlock(MakerExif{.stabilizationSlot = true}), 3));
    EXPECT_EQ(r.record.videoStabilization, 3u);
    EXPECT_TRUE(r.record.stabilizationFlag1 && r.record.stabilizationFlag2);
}

TEST(UpdateVideoStabilization, NeitherEntryChangesNothing) {
    const Bytes block = makerExifBlock();
    ConsoleCapture console;
    EXPECT_EQ(stabilizationPatched(block, 3), block);
    EXPECT_EQ(console.text(), "");
}

TEST(UpdateVideoStabilization, WrongEntriesFail) {
    MakerExif slotWithTwo;
    slotWithTwo.extraPanoxEntries = {srationalEntry(0x0109, {{0, 1}, {0, 1}})};
    MakerExif longStabilization;
    longStabilization.extraPanoxEntries = {longEntry(0x1014, 3)};
    for (Bytes block : {makerExifBlock(slotWithTwo), makerExifBlock(longStabilization), Bytes("MM\0\x2A", 4)}) {
        EXPECT_EQ(thrown([&] { stabilizationPatched(block, 3); }), "VideoStabilization override failed.");
    }
}

}  // namespace
