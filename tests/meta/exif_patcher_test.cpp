// The three patchers: which bytes they touch, in which byte order, the values
// they refuse to lower, the 0x0109 slot rewrite, and how failures surface.
#include <gtest/gtest.h>

#include "exif_test_util.h"
#include "foundation/notices.h"
#include "support/test_files.h"

using namespace builders;
using namespace testsupport;
using namespace exiftest;

namespace {

// Offsets where a and b (same length) differ.
std::vector<size_t> changed(const Bytes& a, const Bytes& b) {
    std::vector<size_t> at;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i]) at.push_back(i);
    }
    return at;
}

enum class Patch { Projection, Zenith, Stabilization };

Bytes patched(Bytes block, Patch which, int32_t v) {
    if (which == Patch::Projection) {
        ExifParser::updateProjectionType(u8(block), block.size(), ExifParser::PROJECTION_TYPE(v));
    } else if (which == Patch::Zenith) {
        ExifParser::updateSphereAdjZenith(u8(block), block.size(), ExifParser::TOPBOTTOM_CORRECTION_TYPE(v));
    } else {
        ExifParser::updateVideoStabilization(u8(block), block.size(), ExifParser::VIDEO_STABILIZATION(v));
    }
    return block;
}

// Where the value field of the (big-endian, SHORT, count 1) entry `tag` is.
size_t valueField(const Bytes& block, uint16_t tag) { return block.find(be16(tag) + be16(3) + be32(1)) + 8; }

TEST(UpdateProjectionType, WritesTheShortIntoItsValueFieldOnlyAndAnyFailureIsOneMessage) {
    const Bytes before = makerExifBlock({.projectionType = 2});
    const Bytes after = patched(before, Patch::Projection, 1);
    EXPECT_EQ(changed(before, after), (std::vector<size_t>{valueField(before, 0x0001) + 1}));  // 00 02 -> 00 01
    const Bytes without = makerExifBlock({.projectionType = {}});
    EXPECT_EQ(patched(without, Patch::Projection, 1), without);  // nothing to patch is no error

    // Little-endian blocks get the shifted value little-endian: 0x00010000.
    const Bytes little = makerExifBlock({.order = ByteOrder::Little, .projectionType = 2});
    const size_t field = little.find(Bytes("\x01\x00\x03\x00\x01\x00\x00\x00", 8)) + 8;
    EXPECT_EQ(patched(little, Patch::Projection, 1).substr(field, 4), Bytes("\x00\x00\x01\x00", 4));

    for (const Bytes& block : {makerExifBlock({.projectionType = {}, .extraPanoxEntries = {longEntry(0x0001, 2)}}),
                               Bytes("\0\0", 2)}) {
        EXPECT_EQ(thrown([&] { patched(block, Patch::Projection, 1); }), "ProjectionType override failed.");
    }
}

TEST(UpdateSphereAdjZenith, AStoredOneIsNeverTurnedOff) {
    // stored, requested -> value field written
    const std::tuple<uint16_t, int32_t, uint32_t> cases[] = {
        {1, 0, 0x00010000}, {0, 0, 0}, {0, 1, 0x00010000}, {1, -1, 0xFFFF0000}};
    for (const auto& [stored, requested, field] : cases) {
        const Bytes before = makerExifBlock({.topBottomCorrection = stored});
        EXPECT_EQ(patched(before, Patch::Zenith, requested).substr(valueField(before, 0x0007), 4), be32(field))
            << stored << " " << requested;
    }
    const Bytes twoShorts = makerExifBlock(
        {.topBottomCorrection = {}, .extraPanoxEntries = {rawEntry(0x0007, tiff::kShort, 2, 0)}});
    EXPECT_EQ(thrown([&] { patched(twoShorts, Patch::Zenith, 1); }), "SphereAdjZenith override failed.");
}

// Zero never touches the block; an existing 0x1014 wins over the 0x0109
// slot, which is otherwise rewritten in place (and says so).
TEST(UpdateVideoStabilization, ZeroExistingEntryAndSlot) {
    const Bytes stored = makerExifBlock({.videoStabilization = 4, .stabilizationSlot = true});
    EXPECT_EQ(patched(stored, Patch::Stabilization, 0), stored);
    QVMX::Notices::Capture notices;
    EXPECT_EQ(changed(stored, patched(stored, Patch::Stabilization, 5)),
              (std::vector<size_t>{valueField(stored, 0x1014) + 1}));
    EXPECT_EQ(notices.text(), L"");

    const Bytes before = makerExifBlock({.stabilizationSlot = true});
    const Bytes after = patched(before, Patch::Stabilization, 3);
    EXPECT_EQ(notices.text(), L"Overwrite VideoStabilization(1014) into 0109.\n");
    const size_t entry = before.find(be16(0x0109) + be16(10) + be32(3));
    ASSERT_NE(entry, Bytes::npos);
    EXPECT_EQ(after.substr(entry, 12), be16(0x1014) + be16(3) + be32(1) + be32(0x00030000));
    // Only that entry changed; the rationals it pointed at stay.
    for (size_t at : changed(before, after)) EXPECT_TRUE(at >= entry && at < entry + 12) << at;
    // Read back where the entry now stands, after 0x0007: the IFD is left unsorted.
    EXPECT_EQ(readKMKN(after).record.videoStabilization, 3u);
    EXPECT_EQ(thrown([&] { patched(makerExifBlock({.extraPanoxEntries = {longEntry(0x1014, 3)}}),
                                   Patch::Stabilization, 3); }),
              "VideoStabilization override failed.");
}

}  // namespace
