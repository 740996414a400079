// Reading the maker record: the three block forms, the IFD walk, the type
// checks and their deliberate gaps, and hostile offsets and counts.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "exif_test_util.h"

using namespace testsupport;
using namespace exiftest;

namespace {

const Bytes kModel("KORVA PANOX D\0", 14);

TEST(ExifRead, BigEndianTiffBlockFillsEveryField) {
    MakerExif x;
    x.videoStabilization = 4;
    const Read r = readKMKN(makerExifBlock(x));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.model, kModel);  // the NUL the count includes is kept
    EXPECT_EQ(r.record.software, Bytes("PANOX D 1.20\0", 13));
    EXPECT_EQ(r.record.makerNote0002, Bytes("KPD-0002\0", 9));
    EXPECT_EQ(r.record.makerNote0005, Bytes("SN 00042\0", 9));
    EXPECT_EQ(r.record.projectionType, 1u);
    EXPECT_EQ(r.record.panox0002, 7u);
    EXPECT_FLOAT_EQ(r.record.zenithAngles[0], 1.5f);
    EXPECT_FLOAT_EQ(r.record.zenithAngles[1], -20.0f);
    EXPECT_FLOAT_EQ(r.record.compass, 123.45f);
    EXPECT_FLOAT_EQ(r.record.heading, 123.45f);  // within +-45 degrees: the compass itself
    EXPECT_EQ(r.record.panox0005, 5u);
    EXPECT_EQ(r.record.topBottomCorrection, 1u);
    EXPECT_EQ(r.record.videoStabilization, 4u);
    EXPECT_TRUE(r.record.stabilizationFlag1);
    EXPECT_FALSE(r.record.stabilizationFlag2);
}

TEST(ExifRead, AbsentTagsKeepTheClearedValues) {
    MakerExif x;
    x.makerNote0005.reset();
    x.panox0002.reset();
    x.zenith.reset();
    x.compass.reset();
    x.topBottomCorrection.reset();
    const Read r = readKMKN(makerExifBlock(x));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_TRUE(r.record.makerNote0005.empty());
    EXPECT_EQ(r.record.panox0002, 0u);
    EXPECT_TRUE(std::isnan(r.record.zenithAngles[0]) && std::isnan(r.record.zenithAngles[1]));
    EXPECT_TRUE(std::isnan(r.record.compass));
    EXPECT_TRUE(std::isnan(r.record.heading));
    EXPECT_EQ(r.record.topBottomCorrection, 0xFFFFFFFFu);
    EXPECT_EQ(r.record.videoStabilization, 0xFFFFFFFFu);
}

TEST(ExifRead, StringsAreTheCountedBytesPaddingIncluded) {
    MakerExif x;
    x.makerNote0002.reset();
    x.makerNote0005.reset();
    Ifd table = ifd0(x);
    table.entries[0] = undefinedEntry(0x0110, Bytes("AB\0\0\0\0\0", 7));
    const Read r = readKMKN(tiffBlock(table, ByteOrder::Big));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.model, Bytes("AB\0\0\0\0\0", 7));
}

TEST(ExifRead, ClearKeepsTheStringsOfIfd0) {
    ExifParser::PANOX record;
    ExifParser parser;
    const Bytes first = makerExifBlock();
    parser.attachKMKN(u8(first), first.size());
    parser.readPNAOX(record);

    MakerExif second;
    second.model.reset();
    second.software.reset();
    second.makerNote0002.reset();
    second.projectionType = 2;
    const Bytes block = makerExifBlock(second);
    parser.attachKMKN(u8(block), block.size());
    parser.readPNAOX(record);
    EXPECT_EQ(record.model, kModel);                // kept from the first block
    EXPECT_EQ(record.software.size(), 13u);         // kept from the first block
    EXPECT_TRUE(record.makerNote0002.empty());      // maker strings are cleared
    EXPECT_EQ(record.projectionType, 2u);
}

TEST(ExifRead, BareMakerNoteSkipsIfd0ButReadsTheMakerValues) {
    Read r;
    r.record.model = "kept";
    ExifParser parser;
    const Bytes block = makerNoteBlock();
    r.error = thrown([&] {
        parser.attachKMKN(u8(block), block.size());
        parser.readPNAOX(r.record);
    });
    ASSERT_EQ(r.error, "(none)");
    EXPECT_TRUE(parser.isOnlyMakerNote());
    EXPECT_EQ(r.record.model, "kept");
    EXPECT_EQ(r.record.makerNote0002, Bytes("KPD-0002\0", 9));
    EXPECT_EQ(r.record.projectionType, 1u);
    EXPECT_FLOAT_EQ(r.record.compass, 123.45f);
    EXPECT_EQ(r.record.topBottomCorrection, 1u);

    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "Only KORVA Meta");
    EXPECT_EQ(thrown([&] { parser.seekToEXIF(); }), "Only KORVA Meta");
    EXPECT_EQ(thrown([&] { parser.seekToMakerNote(); }), "Only KORVA Meta");
}

TEST(ExifRead, LittleEndianBlockYieldsStringsButNoShort) {
    MakerExif x;
    x.order = ByteOrder::Little;
    const Read r = readKMKN(makerExifBlock(x));
    EXPECT_EQ(r.error, "bigEndian reqired.");
    EXPECT_EQ(r.record.model, kModel);
    EXPECT_EQ(r.record.makerNote0005, Bytes("SN 00042\0", 9));
    EXPECT_EQ(r.record.projectionType, 0u);  // the first SHORT ends the read
    EXPECT_TRUE(std::isnan(r.record.compass));
}

TEST(ExifRead, AnyByteOrderMarkButMMReadsLittleEndian) {
    Bytes block = makerExifBlock(MakerExif{.order = ByteOrder::Little});
    block[0] = 'X';
    block[1] = 'Y';
    const Read r = readKMKN(block);
    EXPECT_EQ(r.error, "bigEndian reqired.");
    EXPECT_EQ(r.record.model, kModel);
}

TEST(ExifRead, FirstMatchingEntryWinsAndOrderDoesNotMatter) {
    MakerExif x;
    x.projectionType.reset();
    x.extraPanoxEntries = {shortEntry(0x0001, 3), shortEntry(0x0001, 4)};  // after 0x0007: unsorted
    const Read r = readKMKN(makerExifBlock(x));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.projectionType, 3u);
}

TEST(ExifRead, EmptyPanoxIfdLeavesEveryValueCleared) {
    MakerExif x;
    x.projectionType.reset();
    x.panox0002.reset();
    x.zenith.reset();
    x.compass.reset();
    x.panox0005.reset();
    x.topBottomCorrection.reset();
    const Read r = readKMKN(makerExifBlock(x));
    EXPECT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.projectionType, 0u);
    EXPECT_EQ(r.record.topBottomCorrection, 0xFFFFFFFFu);
}

TEST(ExifRead, StabilizationValuesAndTheirFlags) {
    struct Case {
        uint16_t stored;
        uint32_t read;
        bool flag1, flag2;
    };
    for (const Case c : {Case{1, 1, true, false}, Case{2, 0, false, false}, Case{3, 3, true, true},
                         Case{4, 4, true, false}, Case{5, 5, true, true}, Case{0, 0, false, false},
                         Case{9, 9, false, false}}) {
        MakerExif x;
        x.videoStabilization = c.stored;
        const Read r = readKMKN(makerExifBlock(x));
        ASSERT_EQ(r.error, "(none)");
        EXPECT_EQ(r.record.videoStabilization, c.read) << c.stored;
        EXPECT_EQ(r.record.stabilizationFlag1, c.flag1) << c.stored;
        EXPECT_EQ(r.record.stabilizationFlag2, c.flag2) << c.stored;
    }
}

// The zenith check refuses only "not SRATIONAL and count 2"; everything else
// is read as two SRATIONALs.
TEST(ExifRead, ZenithTypeCheckIsDeliberatelyLax) {
    const auto withZenith = [](uint16_t type, uint32_t count) {
        MakerExif x;
        x.zenith.reset();
        IfdEntry e = srationalEntry(0x0003, {{7, 2}, {-60, 1}});
        e.type = type;
        e.count = count;
        x.extraPanoxEntries = {e};
        return readKMKN(makerExifBlock(x));
    };
    EXPECT_EQ(withZenith(tiff::kRational, 2).error, "Invalid Type: SRATIONAL[2] required.");
    EXPECT_EQ(withZenith(tiff::kShort, 2).error, "Invalid Type: SRATIONAL[2] required.");
    for (const auto& [type, count] : {std::pair{tiff::kRational, 3u}, std::pair{tiff::kSRational, 1u},
                                     std::pair{tiff::kSRational, 9u}}) {
        const Read r = withZenith(type, count);
        EXPECT_EQ(r.error, "(none)");
        EXPECT_FLOAT_EQ(r.record.zenithAngles[0], 3.5f);
        EXPECT_FLOAT_EQ(r.record.zenithAngles[1], -60.0f);
    }
}

TEST(ExifRead, SignedNumeratorOverUnsignedDenominator) {
    MakerExif x;
    x.zenith = std::pair{std::pair{-3, 2}, std::pair{-1, -1}};
    const Read r = readKMKN(makerExifBlock(x));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_FLOAT_EQ(r.record.zenithAngles[0], -1.5f);
    // -1 over 0xFFFFFFFF, not over -1.
    EXPECT_FLOAT_EQ(r.record.zenithAngles[1], float(-1.0 / 4294967295.0));
}

TEST(ExifRead, CompassMustBeOneRational) {
    for (const auto& [type, count] : {std::pair{tiff::kSRational, 1u}, std::pair{tiff::kRational, 2u}}) {
        MakerExif x;
        x.compass.reset();
        IfdEntry e = rationalEntry(0x0004, {{90, 1}, {0, 1}});
        e.type = type;
        e.count = count;
        x.extraPanoxEntries = {e};
        const Read r = readKMKN(makerExifBlock(x));
        EXPECT_EQ(r.error, "Invalid Type: RATIONAL[1] required.");
        EXPECT_FLOAT_EQ(r.record.zenithAngles[0], 1.5f);  // what came before stays
        EXPECT_EQ(r.record.panox0005, 0u);                // what comes after is not read
    }
}

TEST(ExifRead, StringsMustBeTextLongerThanFourBytes) {
    MakerExif x;
    Ifd table = ifd0(x);
    table.entries[0] = asciiEntry(0x0110, "ABC");  // 4 bytes: inline
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "Invalid Type: ASCII[>4] or UNDEF[>4] required.");
    table.entries[0] = rawEntry(0x0110, tiff::kShort, 8, 0x40);
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "Invalid Type: ASCII[>4] or UNDEF[>4] required.");
}

// Each link of the chain IFD0 -> EXIF -> MakerNote -> signature -> PANOX.
TEST(ExifRead, MissingLinksNameWhatIsMissing) {
    MakerExif x;
    Ifd noExif = ifd0(x);
    noExif.entries.pop_back();
    EXPECT_EQ(readKMKN(tiffBlock(noExif, ByteOrder::Big)).error, "EXIF-IFD(0x8769) not found.");

    Ifd noMakerNote = ifd0(x);
    Ifd exif = exifIfd(x);
    exif.entries.pop_back();
    noMakerNote.entries.back() = subIfdEntry(0x8769, exif);
    EXPECT_EQ(readKMKN(tiffBlock(noMakerNote, ByteOrder::Big)).error, "MakerNote-IFD(0x927C) not found.");

    Ifd otherMaker = ifd0(x);
    Ifd otherExif = exifIfd(x);
    otherExif.entries.back() = makerNoteEntry(0x927C, makerIfd(x), Bytes("Korvb\0\0\0", 8));
    otherMaker.entries.back() = subIfdEntry(0x8769, otherExif);
    const Read notOurs = readKMKN(tiffBlock(otherMaker, ByteOrder::Big));
    EXPECT_EQ(notOurs.error, "Not a KORVA image.");
    EXPECT_EQ(notOurs.record.model, kModel);

    Ifd maker = makerIfd(x);
    maker.entries.pop_back();
    EXPECT_EQ(readKMKN(makerSignature() + serializeIfd(maker, 8, ByteOrder::Big)).error,
              "PANOX-IFD(0x4001) not found.");
}

TEST(ExifRead, BadTiffIdDropsTheCopy) {
    Bytes block = makerExifBlock();
    block[3] = 0x2B;
    ExifParser parser;
    EXPECT_EQ(thrown([&] { parser.attachKMKN(u8(block), block.size()); }), "Invalid TIFF-ID(0x002A).");
    EXPECT_EQ(parser.length(), 0u);
}

TEST(ExifRead, Ifd0OffsetZeroIsScannedAsJpeg) {
    Bytes block = makerExifBlock();
    block.replace(4, 4, be32(0));
    EXPECT_EQ(readKMKN(block).error, "SOI(0xFFD8) not found.");
}

// --- whole JPEG files --------------------------------------------------------

TEST(ExifJpeg, ExifSegmentIsFoundBehindOtherSegmentsAndFillBytes) {
    const Bytes tiffBytes = makerExifBlock();
    Bytes file = jpegWithExif(tiffBytes, 3);
    file.insert(2, "\xFF\xFF");                                // fill
    file.insert(2, "\xFF\xE1" + be16(8) + Bytes("http:\0", 6));  // an APP1 that is no Exif
    const Read r = readJPEG(file);
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.model, kModel);
    EXPECT_FLOAT_EQ(r.record.compass, 123.45f);

    ExifParser parser;
    parser.attachBytes(u8(file), file.size());
    parser.seekToIFD0();
    const size_t tiffAt = file.find(tiffBytes);
    EXPECT_EQ(parser.tiffBasePosition(), tiffAt);
    EXPECT_EQ(parser.position(), tiffAt + 8);
}

TEST(ExifJpeg, ScanGivesUpSilentlyAfter32Markers) {
    const Read found = readJPEG(jpegWithExif(makerExifBlock(), 31));
    EXPECT_EQ(found.error, "(none)");
    EXPECT_EQ(found.record.model, kModel);

    const Bytes file = jpegWithExif(makerExifBlock(), 32);
    ExifParser parser;
    parser.attachBytes(u8(file), file.size());
    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "(none)");
    EXPECT_EQ(parser.position(), file.find("\xFF\xE1"));  // stopped at the Exif marker, unread
}

TEST(ExifJpeg, MarkersThatEndTheScan) {
    const Bytes app1 = exifApp1(makerExifBlock());
    const Bytes soi = "\xFF\xD8";
    struct Case {
        Bytes file;
        const char* message;
    };
    for (const Case& c : {Case{"\xFF\xD9" + app1, "SOI(0xFFD8) not found."},
                          Case{soi + soi + app1, "Invalid SOI(0xFFD8) found."},
                          Case{soi + "\xFF\xD9" + app1, "Invalid EOI(0xFFD9) found."},
                          Case{soi + "\xFF\xDA" + app1, "Invalid SOS(0xFFDA) found."},
                          Case{soi + "\x12\x34" + app1, "Unknown marker."},
                          Case{soi, "Invalid position"},
                          Case{Bytes(), "Invalid position"}}) {
        EXPECT_EQ(readJPEG(c.file).error, c.message);
    }
}

TEST(ExifJpeg, BadTiffIdInsideTheJpegKeepsTheCopy) {
    Bytes tiffBytes = makerExifBlock();
    tiffBytes[2] = 0;
    tiffBytes[3] = 0;
    const Bytes file = jpegWithExif(tiffBytes);
    ExifParser parser;
    parser.attachBytes(u8(file), file.size());
    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "Invalid TIFF-ID(0x002A).");
    EXPECT_EQ(parser.length(), file.size());
}

// --- hostile offsets and counts ----------------------------------------------

TEST(ExifBounds, OffsetsAndCountsPastTheEndThrowInvalidPosition) {
    const MakerExif x;
    const auto withIfd0Entry = [&](size_t index, IfdEntry e) {
        Ifd table = ifd0(x);
        table.entries[index] = e;
        return readKMKN(tiffBlock(table, ByteOrder::Big)).error;
    };
    EXPECT_EQ(withIfd0Entry(0, rawEntry(0x0110, tiff::kAscii, 20, 0xFFFFFFF0)), "Invalid position");
    EXPECT_EQ(withIfd0Entry(0, rawEntry(0x0110, tiff::kAscii, 0xFFFFFFFF, 8)), "Invalid position");
    EXPECT_EQ(withIfd0Entry(2, rawEntry(0x8769, tiff::kLong, 1, 0x7FFFFFFF)), "Invalid position");

    MakerExif farCompass;
    farCompass.compass.reset();
    farCompass.extraPanoxEntries = {rawEntry(0x0004, tiff::kRational, 1, 0xFFFFFFFC)};
    EXPECT_EQ(readKMKN(makerExifBlock(farCompass)).error, "Invalid position");

    // A PANOX entry count that claims more entries than the block holds: the
    // search for the absent 0x1014 runs into the end.
    Bytes block = makerNoteBlock();
    const size_t panoxPointer = 8 + 2 + 2 * 12 + 8;  // value field of the third maker entry
    const auto panox = uint8_t(block[panoxPointer + 2]) << 8 | uint8_t(block[panoxPointer + 3]);
    block.replace(size_t(panox), 2, be16(0xFFFF));
    EXPECT_EQ(readKMKN(block).error, "Invalid position");
}

TEST(ExifBounds, EveryTruncationEndsInAKnownMessage) {
    const std::set<std::string> known = {
        "(none)", "Invalid position", "Invalid TIFF-ID(0x002A).", "SOI(0xFFD8) not found.",
        "EXIF-IFD(0x8769) not found.", "MakerNote-IFD(0x927C) not found.", "Not a KORVA image.",
        "PANOX-IFD(0x4001) not found."};
    for (const Bytes& whole : {makerExifBlock(), makerNoteBlock(), jpegWithExif(makerExifBlock())}) {
        for (size_t n = 0; n <= whole.size(); ++n) {
            const Bytes cut = whole.substr(0, n);
            const Read r = whole[0] == '\xFF' ? readJPEG(cut) : readKMKN(cut);
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

    // The MakerNote names IFD0, whose first bytes are no signature.
    Ifd exif = exifIfd(x);
    exif.entries.back() = rawEntry(0x927C, tiff::kUndefined, 64, 8);
    table.entries.back() = subIfdEntry(0x8769, exif);
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "Not a KORVA image.");

    // The PANOX pointer names the maker IFD it stands in.
    Ifd maker = makerIfd(x);
    maker.entries.back() = rawEntry(0x4001, tiff::kLong, 1, 8);
    const Read r = readKMKN(makerSignature() + serializeIfd(maker, 8, ByteOrder::Big));
    EXPECT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.makerNote0002, Bytes("KPD-0002\0", 9));
}

}  // namespace
