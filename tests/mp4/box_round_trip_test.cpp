// Every box the tool writes, filled by hand, written through its field list,
// read back from a movie file and compared; parsed boxes write back the
// bytes they came from; and every cut of those bytes reads without harm.
#include <gtest/gtest.h>

#include <stdexcept>

#include "mp4/avcc_box.h"
#include "mp4/field_buffer.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "mp4/uuid_box.h"
#include "support/movie_file.h"
#include "tools/builders/spatial_builder.h"
#include "tools/builders/box_builder.h"

using namespace testsupport;
using namespace builders;

namespace {

// The spatial kind is registered as a box holder in box_tree_test.cpp.

Bytes asBytes(const std::vector<uint8_t>& v) { return Bytes(v.begin(), v.end()); }

// The box as the tool writes it: a 32-bit header and the described fields.

Bytes inTrak(const Bytes& b) { return box("moov", box("trak", b)); }
Bytes inMdia(const Bytes& b) { return inTrak(box("mdia", b)); }
Bytes inStbl(const Bytes& b) { return inMdia(box("minf", box("stbl", b))); }

template <typename T>
T& readBack(MovieFile& m, const char* path) {
    auto* typed = dynamic_cast<T*>(m.first(path));
    if (typed == nullptr) throw std::runtime_error(std::string("no typed box at ") + path);
    return *typed;
}

template <typename T>
T blank(const char (&type)[5]) {
    return T(0, 0, 0, MP4::fourcc(type), nullptr);
}

// Reads the fields of `body` cut at every length: short of the fixed part
// the read fails; what was read writes back as the bytes of the cut up to
// the last whole field, with zeros for the fields past it (a table or a
// payload just stops).
template <typename T>
void everyCutReadsSafely(const char (&type)[5], const Bytes& body, size_t fixedPart) {
    for (size_t cut = 0; cut <= body.size(); ++cut) {
        SCOPED_TRACE(std::string(type) + " cut at " + std::to_string(cut));
        const std::vector<uint8_t> bytes(body.begin(), body.begin() + static_cast<long>(cut));
        T b = blank<T>(type);
        MP4::Fields f = MP4::Fields::from(bytes);
        b.describe(f);
        EXPECT_EQ(f.failed(), cut < fixedPart);
        EXPECT_LE(f.offset(), cut);
        const Bytes again = asBytes(b.describedBytes());
        ASSERT_GE(again.size(), f.offset());
        EXPECT_EQ(again.substr(0, f.offset()), body.substr(0, f.offset()));
        EXPECT_EQ(again.find_first_not_of('\0', f.offset()), Bytes::npos);
        if (cut == body.size()) {
            EXPECT_EQ(again, body);
        }
    }
}

// Every typed box of the tree reads its own written fields back unchanged.
void writtenFieldsReadBack(const MP4::BOX& b) {
    const auto bytes = b.describedBytes();
    auto& same = const_cast<MP4::BOX&>(b);
    MP4::Fields f = MP4::Fields::from(bytes);
    if (same.describe(f)) {
        EXPECT_FALSE(f.failed()) << b.name();
        EXPECT_EQ(f.left(), 0u) << b.name();
        EXPECT_EQ(same.describedBytes(), bytes) << b.name();
    }
    if (!b.hasChild()) return;
    for (const auto& child : static_cast<const MP4::NestedBox&>(b).children) writtenFieldsReadBack(*child);
}

}  // namespace

TEST(FieldBuffer, NumbersAreBigEndianAndAShortReadYieldsZerosFromThereOn) {
    std::vector<uint8_t> out;
    {
        MP4::Fields w = MP4::Fields::into(out);
        uint8_t a = 0x01;
        uint16_t b = 0x0203;
        uint32_t c = 0xAA040506;  // only the low 24 bits go out
        uint32_t d = 0x0708090A;
        uint64_t e = 0x0B0C0D0E0F101112;
        uint64_t narrow = 0x1122334455667788;
        w.u8(a);
        w.u16(b);
        w.u24(c);
        w.u32(d);
        w.u64(e);
        w.u32or64(narrow, false);
        EXPECT_EQ(w.offset(), 22u);
        EXPECT_EQ(narrow, 0x1122334455667788u);  // writing leaves the field alone
    }
    EXPECT_EQ(asBytes(out), Bytes("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10\x11\x12", 18) +
                                be32(0x55667788));

    // Cut in the middle of the 32-bit field: it and everything after read
    // as zero, even a byte that would still fit.
    const std::vector<uint8_t> cut(out.begin(), out.begin() + 8);
    MP4::Fields r = MP4::Fields::from(cut);
    uint8_t a = 9, last = 9;
    uint16_t b = 9;
    uint32_t c = 9, d = 9;
    r.u8(a);
    r.u16(b);
    r.u24(c);
    r.u32(d);
    r.u8(last);
    EXPECT_EQ(a, 0x01);
    EXPECT_EQ(b, 0x0203);
    EXPECT_EQ(c, 0x040506u);
    EXPECT_EQ(d, 0u);
    EXPECT_EQ(last, 0u);
    EXPECT_TRUE(r.failed());
    EXPECT_EQ(r.offset(), 6u);
    EXPECT_EQ(r.left(), 0u);
}

TEST(FieldBuffer, TablesHoldOnlyTheWholeRecordsPresent) {
    std::vector<uint8_t> bytes(8 * 3 + 5, 0x01);
    std::vector<std::pair<uint32_t, uint32_t>> records;
    auto each = [](MP4::Fields& g, std::pair<uint32_t, uint32_t>& r) {
        g.u32(r.first);
        g.u32(r.second);
    };
    MP4::Fields r = MP4::Fields::from(bytes);
    r.table(records, 0xFFFFFFFFu, each);
    EXPECT_EQ(records.size(), 3u);
    EXPECT_FALSE(r.failed());
    EXPECT_EQ(r.left(), 5u);

    MP4::Fields few = MP4::Fields::from(bytes);
    few.table(records, 1, each);
    EXPECT_EQ(records.size(), 1u);
    EXPECT_EQ(few.left(), bytes.size() - 8);
}

TEST(BoxRoundTrip, ParsedBoxesWriteBackTheBytesTheyCameFrom) {
    // Boxes made by the test builders, an independent writer.
    const std::vector<std::pair<Bytes, const char*>> cases = {
        {inMdia(mdhd(0, 0x12345678, 90000, 270000)), "moov.trak.mdia.mdhd"},
        {inMdia(mdhd(1, 0x1122334455667788ull, 44100, 0x1FFFFFFFFull)), "moov.trak.mdia.mdhd"},
        {box("moov", mvhd(0, 3600, 1000, 5000)), "moov.mvhd"},
        {box("moov", mvhd(1, 0xABCDEF0123ull, 1000, 1ull << 40)), "moov.mvhd"},
        {inTrak(tkhd(0, 99, 1920, 1080)), "moov.trak.tkhd"},
        {inTrak(tkhd(1, 99, 0, 0)), "moov.trak.tkhd"},
        {fullBox("meta", 0, 0, hdlr("mdir", "Named handler")), "meta.hdlr"},
        {inStbl(stts({{10, 1001}, {1, 2002}})), "moov.trak.mdia.minf.stbl.stts"},
        {inStbl(stsc({{1, 2, 1}, {5, 1, 1}})), "moov.trak.mdia.minf.stbl.stsc"},
        {inStbl(stsz(0, {100, 200, 300})), "moov.trak.mdia.minf.stbl.stsz"},
        {inStbl(stsz(1024, {}, 77)), "moov.trak.mdia.minf.stbl.stsz"},
        {inStbl(stsd({sowt(2, 16, 48000u << 16)})), "moov.trak.mdia.minf.stbl.stsd.sowt"},
        {inStbl(stsd({avc1(64, 32, {box("avcC", "\x01\x64\x00\x1f\xff\xe1")})})),
         "moov.trak.mdia.minf.stbl.stsd.avc1.avcC"},
        {uuidBox(std::string(16, '\x42'), "payload bytes"), "uuid"},
    };
    for (const auto& [bytes, path] : cases) {
        SCOPED_TRACE(path);
        MovieFile m(bytes);
        MP4::BOX* b = m.first(path);
        ASSERT_NE(b, nullptr);
        const Bytes held = bytes.substr(b->start + 8, b->size - 8);
        EXPECT_EQ(asBytes(b->describedBytes()), held);
    }
}

TEST(BoxRoundTrip, AvcCAndUuidPayloadsAndTheSpatialKind) {
    const Bytes record("\x01\x64\x00\x1f\xff\xe1\x00\x04\x67\x64\x00\x1f\x01\x00\x04\x68\xee\x3c\xb0", 19);
    ByteArray payload(record.data(), record.size());
    const ByteArray whole = MP4::AVCC::boxWith(payload);
    EXPECT_EQ(Bytes(whole.view()), box("avcC", record));
    MovieFile a(inStbl(stsd({avc1(64, 32, {Bytes(whole.view())})})));
    EXPECT_EQ(readBack<MP4::AVCC>(a, "moov.trak.mdia.minf.stbl.stsd.avc1.avcC").payload, payload);

    const MP4::UserType kind = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const MP4::UUID u(kind, "some payload");
    const ByteArray bytes = u.to_byteArray();
    EXPECT_EQ(Bytes(bytes.view()), uuidBox(Bytes(kind.begin(), kind.end()), "some payload"));
    MovieFile b(Bytes(bytes.view()) + Bytes(bytes.view()));
    auto& back = readBack<MP4::UUID>(b, "uuid");
    EXPECT_EQ(back.userType, kind);
    EXPECT_EQ(back.payload.view(), "some payload");
    EXPECT_EQ(b.container.root()->children.size(), 2u);

    // The spatial kind's fields are its user type alone; its children
    // follow in the file.
    MovieFile s(uuidBox(kSpatialDataUuid, box("KADT", "pcm!")));
    auto& spatial = readBack<MP4::UUID>(s, "uuid");
    EXPECT_TRUE(spatial.hasChild());
    EXPECT_EQ(asBytes(spatial.describedBytes()), kSpatialDataUuid);
    EXPECT_NE(s.first("uuid.KADT"), nullptr);
}

TEST(BoxRoundTrip, EveryCutOfTheWrittenFieldsReadsSafely) {
    auto bodyOf = [](const Bytes& b) { return b.substr(8); };
    const Bytes mvhd1 = bodyOf(mvhd(1, 5, 600, 1200));
    const Bytes mvhd0 = bodyOf(mvhd(0, 5, 600, 1200));
    const Bytes tkhd1 = bodyOf(tkhd(1, 5, 64, 32));
    const Bytes mdhd0 = bodyOf(mdhd(0, 5, 600, 1200));
    const Bytes sowt16 = bodyOf(sowt(2, 16, 44100u << 16));
    everyCutReadsSafely<MP4::MVHD>("mvhd", mvhd1, mvhd1.size());
    everyCutReadsSafely<MP4::MVHD>("mvhd", mvhd0, mvhd0.size());
    everyCutReadsSafely<MP4::TKHD>("tkhd", tkhd1, tkhd1.size());
    everyCutReadsSafely<MP4::MDHD>("mdhd", mdhd0, mdhd0.size());
    everyCutReadsSafely<MP4::SOWT>("sowt", sowt16, sowt16.size());
    everyCutReadsSafely<MP4::HDLR>("hdlr", bodyOf(hdlr("vide", "v")), 24);
    everyCutReadsSafely<MP4::STTS>("stts", bodyOf(stts({{1, 2}, {3, 4}})), 8);
    everyCutReadsSafely<MP4::STSC>("stsc", bodyOf(stsc({{1, 2, 3}})), 8);
    everyCutReadsSafely<MP4::STSZ>("stsz", bodyOf(stsz(0, {5, 6, 7})), 12);
    everyCutReadsSafely<MP4::STCO>("stco", bodyOf(stco({9})).substr(0, 8), 8);
    everyCutReadsSafely<MP4::AVCC>("avcC", "\x01\x64\x00\x1f", 0);
    everyCutReadsSafely<MP4::UUID>("uuid", Bytes(16, '\x07') + "xyz", 16);

    // A movie cut anywhere parses, and each typed box it holds reads its
    // written fields back unchanged.
    const Bytes whole = inStbl(stts({{1, 2}}) + stsz(0, {5, 6}) + stco({1}) +
                               stsd({sowt(1, 8, 8000u << 16)})) +
                        uuidBox(Bytes(16, 'u'), "p") + uuidBox(kSpatialDataUuid, inMdia(mdhd(1, 2, 3, 4)));
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        MovieFile m(whole.substr(0, cut));
        writtenFieldsReadBack(*m.container.root());
    }
}
