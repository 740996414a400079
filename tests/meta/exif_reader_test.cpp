// Reading the maker record: the three block forms, the IFD walk, the type
// checks and their deliberate gaps, and hostile offsets and counts.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "exif_test_util.h"

using namespace builders;
using namespace exiftest;

namespace {

const Bytes kModel("KORVA PANOX D\0", 14);

TEST(ExifRead, BigEndianTiffBlockFillsEveryField) {
    const Read r = readKMKN(makerExifBlock(MakerExif{.videoStabilization = 4}));
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

TEST(ExifRead, EmptyPanoxIfdLeavesTheClearedValues) {
    const Read r = readKMKN(makerExifBlock({.makerNote0005 = {}, .projectionType = {}, .panox0002 = {}, .zenith = {},
                                            .compass = {}, .panox0005 = {}, .topBottomCorrection = {}}));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_TRUE(r.record.makerNote0005.empty());
    EXPECT_EQ(r.record.projectionType + r.record.panox0002 + r.record.panox0005, 0u);
    EXPECT_TRUE(std::isnan(r.record.zenithAngles[0]) && std::isnan(r.record.zenithAngles[1]));
    EXPECT_TRUE(std::isnan(r.record.compass) && std::isnan(r.record.heading));
    EXPECT_EQ(r.record.topBottomCorrection, 0xFFFFFFFFu);
    EXPECT_EQ(r.record.videoStabilization, 0xFFFFFFFFu);
}

// Strings are the counted bytes, padding included; a second read without IFD0
// strings keeps those of the first, but not the maker-note strings.
TEST(ExifRead, Ifd0StringsSurviveClear) {
    Ifd padded = ifd0(MakerExif{});
    padded.entries[0] = undefinedEntry(0x0110, Bytes("AB\0\0\0\0\0", 7));
    const Bytes first = tiffBlock(padded, ByteOrder::Big);
    const Bytes second = makerExifBlock({.model = {}, .software = {}, .makerNote0002 = {}, .projectionType = 2});

    ExifParser::PANOX record;
    ExifParser parser;
    parser.attachKMKN(u8(first), first.size());
    parser.readPNAOX(record);
    EXPECT_EQ(record.model, Bytes("AB\0\0\0\0\0", 7));
    parser.attachKMKN(u8(second), second.size());
    parser.readPNAOX(record);
    EXPECT_EQ(record.model, Bytes("AB\0\0\0\0\0", 7));
    EXPECT_EQ(record.software.size(), 13u);
    EXPECT_TRUE(record.makerNote0002.empty());
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
    EXPECT_EQ(r.record.model, "kept");
    EXPECT_EQ(r.record.makerNote0002, Bytes("KPD-0002\0", 9));
    EXPECT_FLOAT_EQ(r.record.compass, 123.45f);
    EXPECT_EQ(r.record.topBottomCorrection, 1u);
    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "Only KORVA Meta");
    EXPECT_EQ(thrown([&] { parser.seekToEXIF(); }), "Only KORVA Meta");
    EXPECT_EQ(thrown([&] { parser.seekToMakerNote(); }), "Only KORVA Meta");
}

TEST(ExifRead, AnyMarkButMMReadsLittleEndianAndYieldsNoShort) {
    for (const Bytes mark : {"II", "XY"}) {
        Bytes block = makerExifBlock({.order = ByteOrder::Little});
        block.replace(0, 2, mark);
        const Read r = readKMKN(block);
        EXPECT_EQ(r.error, "bigEndian reqired.");
        EXPECT_EQ(r.record.model, kModel);
        EXPECT_EQ(r.record.makerNote0005, Bytes("SN 00042\0", 9));
        EXPECT_EQ(r.record.projectionType, 0u);  // the first SHORT ends the read
    }
}

TEST(ExifRead, FirstMatchingEntryWinsAndOrderDoesNotMatter) {
    const Read r = readKMKN(makerExifBlock(
        {.projectionType = {}, .extraPanoxEntries = {shortEntry(0x0001, 3), shortEntry(0x0001, 4)}}));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.projectionType, 3u);
}

TEST(ExifRead, StabilizationValuesAndTheirFlags) {
    // stored -> read, flag1, flag2: 2 reads as 0
    const std::tuple<uint16_t, uint32_t, bool, bool> cases[] = {
        {1, 1, true, false}, {2, 0, false, false}, {3, 3, true, true}, {4, 4, true, false},
        {5, 5, true, true},  {0, 0, false, false}, {9, 9, false, false}};
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
    EXPECT_EQ(withEntry(zenith, tiff::kShort, 2).error, "Invalid Type: SRATIONAL[2] required.");
    for (const auto& [type, count] : {std::pair{tiff::kRational, 3u}, std::pair{tiff::kSRational, 9u}}) {
        const Read r = withEntry(zenith, type, count);
        EXPECT_EQ(r.error, "(none)");
        EXPECT_FLOAT_EQ(r.record.zenithAngles[0], 3.5f);
        EXPECT_FLOAT_EQ(r.record.zenithAngles[1], -60.0f);
    }
    const IfdEntry compass = rationalEntry(0x0004, {{90, 1}, {0, 1}});
    for (const auto& [type, count] : {std::pair{tiff::kSRational, 1u}, std::pair{tiff::kRational, 2u}}) {
        const Read r = withEntry(compass, type, count);
        EXPECT_EQ(r.error, "Invalid Type: RATIONAL[1] required.");
        EXPECT_EQ(r.record.panox0002, 7u);  // read before
        EXPECT_EQ(r.record.panox0005, 0u);  // not reached
    }
    Ifd table = ifd0(MakerExif{});
    table.entries[0] = asciiEntry(0x0110, "ABC");  // 4 bytes: inline
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "Invalid Type: ASCII[>4] or UNDEF[>4] required.");
    table.entries[0] = rawEntry(0x0110, tiff::kShort, 8, 0x40);
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "Invalid Type: ASCII[>4] or UNDEF[>4] required.");
}

TEST(ExifRead, SignedNumeratorOverUnsignedDenominator) {
    const Read r = readKMKN(makerExifBlock({.zenith = std::pair{std::pair{-3, 2}, std::pair{-1, -1}}}));
    EXPECT_FLOAT_EQ(r.record.zenithAngles[0], -1.5f);
    EXPECT_FLOAT_EQ(r.record.zenithAngles[1], float(-1.0 / 4294967295.0));  // not -1 / -1
}

// Each link of the chain IFD0 -> EXIF -> MakerNote -> signature -> PANOX.
TEST(ExifRead, MissingLinksNameWhatIsMissing) {
    const MakerExif x;
    Ifd table = ifd0(x);
    table.entries.pop_back();
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "EXIF-IFD(0x8769) not found.");

    Ifd exif = exifIfd(x);
    exif.entries.pop_back();
    table.entries.push_back(subIfdEntry(0x8769, exif));
    EXPECT_EQ(readKMKN(tiffBlock(table, ByteOrder::Big)).error, "MakerNote-IFD(0x927C) not found.");

    exif.entries.push_back(makerNoteEntry(0x927C, makerIfd(x), Bytes("Korvb\0\0\0", 8)));
    table.entries.back() = subIfdEntry(0x8769, exif);
    const Read notOurs = readKMKN(tiffBlock(table, ByteOrder::Big));
    EXPECT_EQ(notOurs.error, "Not a KORVA image.");
    EXPECT_EQ(notOurs.record.model, kModel);

    Ifd maker = makerIfd(x);
    maker.entries.pop_back();
    EXPECT_EQ(readKMKN(makerSignature() + serializeIfd(maker, 8, ByteOrder::Big)).error,
              "PANOX-IFD(0x4001) not found.");

    Bytes noIfd0 = makerExifBlock();
    noIfd0.replace(4, 4, be32(0));  // IFD0 offset 0: scanned as a JPEG
    EXPECT_EQ(readKMKN(noIfd0).error, "SOI(0xFFD8) not found.");
}

// A bad 42 drops the attached KMKN copy; inside a JPEG the copy stays.
TEST(ExifRead, BadTiffId) {
    Bytes block = makerExifBlock();
    block[3] = 0x2B;
    ExifParser parser;
    EXPECT_EQ(thrown([&] { parser.attachKMKN(u8(block), block.size()); }), "Invalid TIFF-ID(0x002A).");
    EXPECT_EQ(parser.length(), 0u);

    Bytes jpeg = jpegWithExif(block);
    parser.attachBytes(u8(jpeg), jpeg.size());
    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "Invalid TIFF-ID(0x002A).");
    EXPECT_EQ(parser.length(), jpeg.size());
}

// --- whole JPEG files --------------------------------------------------------

TEST(ExifJpeg, ExifSegmentIsFoundBehindOtherSegmentsAndFillBytes) {
    const Bytes tiffBytes = makerExifBlock();
    Bytes file = jpegWithExif(tiffBytes, 3);
    file.insert(2, "\xFF\xFF");                                  // fill
    file.insert(2, "\xFF\xE1" + be16(8) + Bytes("http:\0", 6));  // an APP1 that is no Exif
    const Read r = readJPEG(file);
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.model, kModel);
    EXPECT_FLOAT_EQ(r.record.compass, 123.45f);

    ExifParser parser;
    parser.attachBytes(u8(file), file.size());
    parser.seekToIFD0();
    EXPECT_EQ(parser.tiffBasePosition(), file.find(tiffBytes));
    EXPECT_EQ(parser.position(), file.find(tiffBytes) + 8);
}

TEST(ExifJpeg, ScanGivesUpSilentlyAfter32Markers) {
    EXPECT_EQ(readJPEG(jpegWithExif(makerExifBlock(), 31)).record.model, kModel);

    const Bytes file = jpegWithExif(makerExifBlock(), 32);
    ExifParser parser;
    parser.attachBytes(u8(file), file.size());
    EXPECT_EQ(thrown([&] { parser.seekToIFD0(); }), "(none)");
    EXPECT_EQ(parser.position(), file.find("\xFF\xE1"));  // stopped at the Exif marker, unread
}

TEST(ExifJpeg, MarkersThatEndTheScan) {
    const Bytes app1 = exifApp1(makerExifBlock());
    const Bytes soi = "\xFF\xD8";
    const std::pair<Bytes, const char*> cases[] = {
        {"\xFF\xD9" + app1, "SOI(0xFFD8) not found."}, {soi + soi + app1, "Invalid SOI(0xFFD8) found."},
        {soi + "\xFF\xD9" + app1, "Invalid EOI(0xFFD9) found."},
        {soi + "\xFF\xDA" + app1, "Invalid SOS(0xFFDA) found."}, {soi + "\x12\x34" + app1, "Unknown marker."},
        {soi, "Invalid position"}, {Bytes(), "Invalid position"}};
    for (const auto& [file, message] : cases) EXPECT_EQ(readJPEG(file).error, message);
}

// --- hostile offsets and counts ----------------------------------------------

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
