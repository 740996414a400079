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

Read readTiff(const Ifd& table) { return readKMKN(tiffBlock(table, ByteOrder::Big)); }
Read readMaker(const Ifd& maker) { return readKMKN(makerSignature() + serializeIfd(maker, 8, ByteOrder::Big)); }

TEST(ExifRead, TheBlockFormsAndByteOrders) {
    const Read r = readKMKN(makerExifBlock(MakerExif{.videoStabilization = 4}));
    ASSERT_EQ(r.error, "(none)");
    EXPECT_EQ(r.record.model, kModel);  // the NUL the count includes is kept
    EXPECT_FLOAT_EQ(r.record.heading, 123.45f);  // within +-45 degrees: the compass itself
    EXPECT_TRUE(r.record.videoStabilization == 4 && r.record.stabilizationFlag1);
    EXPECT_EQ(readKMKN(makerNoteBlock()).record.makerNote0002, Bytes("KPD-0002\0", 9));

    // Any mark but MM reads little-endian, and the first SHORT ends the read.
    for (const Bytes mark : {"II", "XY"}) {
        Bytes little = makerExifBlock({.order = ByteOrder::Little});
        little.replace(0, 2, mark);
        const Read l = readKMKN(little);
        EXPECT_EQ(l.error, "bigEndian reqired.");
        EXPECT_EQ(l.record.model, kModel);
    }
}

TEST(ExifRead, StabilizationValuesAndTheirFlags) {
    // stored -> read, flag1, flag2: 2 reads as 0
    const std::tuple<uint16_t, uint32_t, bool, bool> cases[] = {{2, 0, false, false}, {3, 3, true, true},
                                                                {9, 9, false, false}};
    for (const auto& [stored, read, flag1, flag2] : cases) {
        const Read r = readKMKN(makerExifBlock({.videoStabilization = stored}));
        EXPECT_EQ(std::tuple(r.record.videoStabilization, r.record.stabilizationFlag1, r.record.stabilizationFlag2),
                  std::tuple(read, flag1, flag2)) << stored;
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
    EXPECT_FLOAT_EQ(withEntry(zenith, tiff::kRational, 3).record.zenithAngles[0], 3.5f);
    const Read compass = withEntry(rationalEntry(0x0004, {{90, 1}, {0, 1}}), tiff::kRational, 2);
    EXPECT_EQ(compass.error, "Invalid Type: RATIONAL[1] required.");
    EXPECT_EQ(compass.record.panox0005, 0u);  // not reached
    Ifd table = ifd0(MakerExif{});
    table.entries[0] = asciiEntry(0x0110, "ABC");  // 4 bytes: inline
    EXPECT_EQ(readTiff(table).error, "Invalid Type: ASCII[>4] or UNDEF[>4] required.");
}

// Broken chains IFD0 -> EXIF -> MakerNote -> signature -> PANOX, pointers to
// the IFD itself, and offsets and counts past the end.
TEST(ExifBounds, HostileBlocksEndInTheirMessage) {
    const MakerExif x;
    const auto ifd0With = [&](size_t index, IfdEntry e) {
        Ifd table = ifd0(x);
        table.entries[index] = e;
        return table;
    };
    Ifd noExif = ifd0(x);
    noExif.entries.pop_back();
    Ifd wrongSignature = noExif;
    Ifd exif = exifIfd(x);
    exif.entries.back() = makerNoteEntry(0x927C, makerIfd(x), Bytes("Korvb\0\0\0", 8));
    wrongSignature.entries.push_back(subIfdEntry(0x8769, exif));
    Ifd noPanox = makerIfd(x);
    noPanox.entries.pop_back();
    Ifd selfPanox = makerIfd(x);
    selfPanox.entries.back() = rawEntry(0x4001, tiff::kLong, 1, 8);
    Bytes badId = makerExifBlock();
    badId[3] = 0x2B;
    // A PANOX entry count claiming more entries than the block holds.
    Bytes longCount = makerNoteBlock();
    const size_t panoxPointer = 8 + 2 + 2 * 12 + 8;  // value field of the third maker entry
    longCount.replace(size_t(uint8_t(longCount[panoxPointer + 2]) << 8 | uint8_t(longCount[panoxPointer + 3])), 2,
                      be16(0xFFFF));
    const std::pair<Read, const char*> cases[] = {
        {readTiff(noExif), "EXIF-IFD(0x8769) not found."},
        {readTiff(wrongSignature), "Not a KORVA image."},
        {readMaker(noPanox), "PANOX-IFD(0x4001) not found."},
        {readKMKN(badId), "Invalid TIFF-ID(0x002A)."},
        {readTiff(ifd0With(2, rawEntry(0x8769, tiff::kLong, 1, 8))), "MakerNote-IFD(0x927C) not found."},
        {readMaker(selfPanox), "(none)"},
        {readTiff(ifd0With(0, rawEntry(0x0110, tiff::kAscii, 20, 0xFFFFFFF0))), "Invalid position"},
        {readTiff(ifd0With(0, rawEntry(0x0110, tiff::kAscii, 0xFFFFFFFF, 8))), "Invalid position"},
        {readTiff(ifd0With(2, rawEntry(0x8769, tiff::kLong, 1, 0x7FFFFFFF))), "Invalid position"},
        {readKMKN(makerExifBlock({.compass = {}, .extraPanoxEntries = {rawEntry(0x0004, tiff::kRational, 1,
                                                                                0xFFFFFFFC)}})),
         "Invalid position"},
        {readKMKN(longCount), "Invalid position"}};
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first.error, cases[i].second) << i;
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

TEST(ExifJpeg, TheExifSegmentBehindOthersAndTheMarkersThatEndTheScan) {
    Bytes file = jpegWithExif(makerExifBlock(), 29);  // with the two below, 31 before it
    file.insert(2, "\xFF\xFF");                                  // fill
    file.insert(2, "\xFF\xE1" + be16(8) + Bytes("http:\0", 6));  // an APP1 that is no Exif
    EXPECT_EQ(readJPEG(file).record.model, kModel);
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
        {soi + "\xFF\xDA" + app1, "Invalid SOS(0xFFDA) found."}, {soi + "\x12\x34" + app1, "Unknown marker."}};
    for (const auto& [bytes, message] : cases) EXPECT_EQ(readJPEG(bytes).error, message);
}

}  // namespace
