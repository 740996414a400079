// Reading the maker record: the block forms, the IFD walk, the type checks
// and their deliberate gaps, and hostile offsets, counts and truncations.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "exif_test_util.h"

using namespace builders;
using namespace exiftest;

namespace {

const Bytes kModel("KORVA PANOX D\0", 14);

TEST(ExifRead, BigEndianTiffBlockFillsEveryFieldAndAnEmptyPanoxIfdNone) {
    const Read r = readKMKN(makerExifBlock(MakerExif{.videoStabilization = 4}));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.model, kModel);  // the NUL the count includes is kept
    EXPECT_EQ(r.record.makerNote0005, Bytes("SN 00042\0", 9));
    EXPECT_EQ(r.record.projectionType, 1u);
    EXPECT_FLOAT_EQ(r.record.zenithAngles[1], -20.0f);
    EXPECT_FLOAT_EQ(r.record.heading, 123.45f);  // within +-45 degrees: the compass itself
    EXPECT_EQ(r.record.topBottomCorrection, 1u);
    EXPECT_EQ(r.record.videoStabilization, 4u);
    EXPECT_TRUE(r.record.stabilizationFlag1);

    const Read empty = readKMKN(makerExifBlock({.makerNote0005 = {}, .projectionType = {}, .panox0002 = {},
                                                .zenith = {}, .compass = {}, .panox0005 = {},
                                                .topBottomCorrection = {}}));
    ASSERT_EQ(empty.error, "(none)");
    EXPECT_EQ(empty.record.projectionType, 0u);
    EXPECT_TRUE(std::isnan(empty.record.zenithAngles[0]) && std::isnan(empty.record.heading));
    EXPECT_EQ(empty.record.topBottomCorrection, 0xFFFFFFFFu);
}

TEST(ExifRead, BareMakerNoteAndOtherByteOrders) {
    const Read bare = readKMKN(makerNoteBlock());
    ASSERT_EQ(bare.error, "(none)");
    EXPECT_EQ(bare.record.makerNote0002, Bytes("KPD-0002\0", 9));
    EXPECT_EQ(bare.record.topBottomCorrection, 1u);
    ExifParser parser;
    const Bytes block = makerNoteBlock();
    parser.attachKMKN(u8(block), block.size());
    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "Only KORVA Meta");

    // Any mark but MM reads little-endian, and the first SHORT ends the read.
    for (const Bytes mark : {"II", "XY"}) {
        Bytes little = makerExifBlock({.order = ByteOrder::Little});
        little.replace(0, 2, mark);
        const Read r = readKMKN(little);
        EXPECT_EQ(r.error, "bigEndian reqired.");
        EXPECT_EQ(r.record.model, kModel);
        EXPECT_EQ(r.record.projectionType, 0u);
    }
}

TEST(ExifRead, StabilizationValuesAndTheirFlags) {
    // stored -> read, flag1, flag2: 2 reads as 0
    const std::tuple<uint16_t, uint32_t, bool, bool> cases[] = {
        {2, 0, false, false}, {3, 3, true, true}, {4, 4, true, false}, {9, 9, false, false}};
    for (const auto& [stored, read, flag1, flag2] : cases) {
        const Read r = readKMKN(makerExifBlock({.videoStabilization = stored}));
        EXPECT_EQ(r.record.videoStabilization, read) << stored;
        EXPECT_EQ(r.record.stabilizationFlag1, flag1) << stored;
        EXPECT_EQ(r.record.stabilizationFlag2, flag2) << stored;
    }
}

// The zenith check refuses only "not SRATIONAL and count 2"; everything else
// is read as two SRATIONALs. The compass must be one RATIONAL.
TEST(ExifRead, TypeChecksAndTheirDeliberateGaps) {
    const auto withEntry = [](IfdEntry e, uint16_t type, uint32_t count) {
        e.type = type;
        e.count = count;
        return readKMKN(makerExifBlock({.zenith = {}, .compass = {}, .extraPanoxEntries = {e}}));
    };
    const IfdEntry zenith = srationalEntry(0x0003, {{7, 2}, {-60, 1}});
    EXPECT_EQ(withEntry(zenith, tiff::kRational, 2).error, "Invalid Type: SRATIONAL[2] required.");
    const Read gap = withEntry(zenith, tiff::kRational, 3);
    EXPECT_EQ(gap.error, "(none)");
    EXPECT_FLOAT_EQ(gap.record.zenithAngles[0], 3.5f);
    const Read compass = withEntry(rationalEntry(0x0004, {{90, 1}, {0, 1}}), tiff::kRational, 2);
    EXPECT_EQ(compass.error, "Invalid Type: RATIONAL[1] required.");
    EXPECT_EQ(compass.record.panox0002, 7u);  // read before
    EXPECT_EQ(compass.record.panox0005, 0u);  // not reached
    Ifd table = ifd0(MakerExif{});
    table.entries[0] = asciiEntry(0x0110, "ABC");  // 4 bytes: inline
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "Invalid Type: ASCII[>4] or UNDEF[>4] required.");
    // A signed numerator over an unsigned denominator: not -1 / -1.
    const Read sign = readKMKN(makerExifBlock({.zenith = std::pair{std::pair{-3, 2}, std::pair{-1, -1}}}));
    EXPECT_FLOAT_EQ(sign.record.zenithAngles[1], float(-1.0 / 4294967295.0));
}

// Each link of the chain IFD0 -> EXIF -> MakerNote -> signature -> PANOX.
TEST(ExifRead, MissingLinksNameWhatIsMissing) {
    const MakerExif x;
    Ifd table = ifd0(x);
    table.entries.pop_back();
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "EXIF-IFD(0x8769) not found.");

    Ifd exif = exifIfd(x);
    exif.entries.push_back(makerNoteEntry(0x927C, makerIfd(x), Bytes("Korvb\0\0\0", 8)));
    exif.entries.erase(exif.entries.end() - 2);
    table.entries.push_back(subIfdEntry(0x8769, exif));
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "Not a KORVA image.");

    Ifd maker = makerIfd(x);
    maker.entries.pop_back();
    EXPECT_EQ(readKMKN(makerSignature() + serializeIfd(maker, 8, ByteOrder::Big)).error,
              "PANOX-IFD(0x4001) not found.");

    Bytes badId = makerExifBlock();
    badId[3] = 0x2B;
    EXPECT_EQ(readKMKN(badId).error, "Invalid TIFF-ID(0x002A).");
}

TEST(ExifJpeg, TheExifSegmentBehindOthersAndTheMarkersThatEndTheScan) {
    Bytes file = jpegWithExif(makerExifBlock(), 3);
    file.insert(2, "\xFF\xFF");                                  // fill
    file.insert(2, "\xFF\xE1" + be16(8) + Bytes("http:\0", 6));  // an APP1 that is no Exif
    EXPECT_EQ(readJPEG(file).record.model, kModel);
    EXPECT_EQ(readJPEG(jpegWithExif(makerExifBlock(), 31)).record.model, kModel);
    // After 32 markers the scan gives up silently, at the Exif marker unread.
    const Bytes late = jpegWithExif(makerExifBlock(), 32);
    ExifParser parser;
    parser.attachBytes(u8(late), late.size());
    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "(none)");
    EXPECT_EQ(parser.position(), late.find("\xFF\xE1"));

    const Bytes app1 = exifApp1(makerExifBlock());
    const Bytes soi = "\xFF\xD8";
    const std::pair<Bytes, const char*> cases[] = {
        {"\xFF\xD9" + app1, "SOI(0xFFD8) not found."}, {soi + soi + app1, "Invalid SOI(0xFFD8) found."},
        {soi + "\xFF\xDA" + app1, "Invalid SOS(0xFFDA) found."}, {soi + "\x12\x34" + app1, "Unknown marker."},
        {soi, "Invalid position"}};
    for (const auto& [bytes, message] : cases) EXPECT_EQ(readJPEG(bytes).error, message);
}

TEST(ExifBounds, OffsetsAndCountsPastTheEndThrowInvalidPosition) {
    const auto withIfd0Entry = [](size_t index, IfdEntry e) {
        Ifd table = ifd0(MakerExif{});
        table.entries[index] = e;
        return readKMKN(tiffBlock(table, ByteOrder::Big)).error;
    };
    EXPECT_EQ(withIfd0Entry(0, rawEntry(0x0110, tiff::kAscii, 20, 0xFFFFFFF0)), "Invalid position");
    EXPECT_EQ(withIfd0Entry(0, rawEntry(0x0110, tiff::kAscii, 0xFFFFFFFF, 8)), "Invalid position");
    EXPECT_EQ(withIfd0Entry(2, rawEntry(0x8769, tiff::kLong, 1, 0x7FFFFFFF)), "Invalid position");
    const MakerExif farCompass{.compass = {}, .extraPanoxEntries = {rawEntry(0x0004, tiff::kRational, 1, 0xFFFFFFFC)}};
    EXPECT_EQ(readKMKN(makerExifBlock(farCompass)).error, "Invalid position");

    // A PANOX entry count that claims more entries than the block holds: the
    // search for the absent 0x1014 runs into the end.
    Bytes block = makerNoteBlock();
    const size_t panoxPointer = 8 + 2 + 2 * 12 + 8;  // value field of the third maker entry
    const size_t panox = size_t(uint8_t(block[panoxPointer + 2]) << 8 | uint8_t(block[panoxPointer + 3]));
    block.replace(panox, 2, be16(0xFFFF));
    EXPECT_EQ(readKMKN(block).error, "Invalid position");
}

TEST(ExifBounds, EveryTruncationEndsInAKnownMessage) {
    const std::set<std::string> known = {
        "(none)", "Invalid position", "Invalid TIFF-ID(0x002A).", "SOI(0xFFD8) not found.",
        "EXIF-IFD(0x8769) not found.", "MakerNote-IFD(0x927C) not found.", "Not a KORVA image.",
        "PANOX-IFD(0x4001) not found."};
    for (const Bytes& whole : {makerExifBlock(), makerNoteBlock(), jpegWithExif(makerExifBlock())}) {
        for (size_t n = 0; n <= whole.size(); ++n) {
            const Read r = whole[0] == '\xFF' ? readJPEG(whole.substr(0, n)) : readKMKN(whole.substr(0, n));
            EXPECT_TRUE(known.count(r.error)) << n << ": " << r.error;
        }
    }
}

TEST(ExifBounds, IfdsPointingAtThemselvesEnd) {
    const MakerExif x;
    // The EXIF pointer names IFD0 itself: the MakerNote is then looked for there.
    Ifd table = ifd0(x);
    table.entries.back() = rawEntry(0x8769, tiff::kLong, 1, 8);
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "MakerNote-IFD(0x927C) not found.");
    // The PANOX pointer names the maker IFD it stands in.
    Ifd maker = makerIfd(x);
    maker.entries.back() = rawEntry(0x4001, tiff::kLong, 1, 8);
    EXPECT_EQ(readKMKN(makerSignature() + serializeIfd(maker, 8, ByteOrder::Big)).error, "(none)");
}

}  // namespace
