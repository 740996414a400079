// The box tree: header forms, truncated and hostile input, the typed
// readers, path search and the dump.
#include <gtest/gtest.h>

#include "mp4/avcc_box.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "mp4/user_data_boxes.h"
#include "mp4/uuid_box.h"
#include "tools/builders/spatial_builder.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

// A uuid kind whose payload is boxes, one of them a whole track, as a
// camera's metadata code registers it.
const bool holderKnown = (MP4::registerBoxHolder({0x28, 0xf3, 0x11, 0xe2, 0xb7, 0x91, 0x4f, 0x6f, 0x94, 0xe2, 0x4f,
                                                   0x5d, 0xea, 0xcb, 0x3c, 0x01},
                                                  MP4::fourcc("KATR")),
                           true);


const std::string kSpatialUuid("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);

template <typename T>
T* typed(MovieFile& m, const std::string& path) {
    return dynamic_cast<T*>(m.first(path.c_str()));
}

size_t count(MovieFile& m, const char* path) {
    size_t n = 0;
    m.container.find(path, [&](MP4::BOX&) { return ++n, true; });
    return n;
}

std::wstring dumpOf(MovieFile& m) {
    std::wstring text;
    m.container.root()->dump([&text](const std::wstring& line) { text += line; });
    return text;
}

}  // namespace

TEST(BoxHeader, SizeZeroRunsToTheEndAndLargeSizesAreWrittenInTheirOwnField) {
    MovieFile open(box("ftyp", "isom") + be32(0) + "mdat" + Bytes(100, 'x'));
    ASSERT_NE(open.container.mdat(), nullptr);
    EXPECT_EQ(open.container.mdat()->size, 108u);

    MovieFile m(box("ftyp", "isom") + largeBox("mdat", Bytes(20, 'x')) + box("free"));
    auto& mdat = *m.container.mdat();
    EXPECT_TRUE(mdat.largeSize);
    EXPECT_EQ(mdat.size, 36u);
    EXPECT_EQ(m.first("free")->start, 48u);
    {
        MP4::BinFile file(m.wpath(), 'a');
        EXPECT_TRUE(mdat.writeSize(file, 0x0102030405060708ull));
        file.seek(5);  // a small header takes the low 32 bits and the position is kept
        EXPECT_TRUE(m.first("ftyp")->writeSize(file, 0x100000010ull));
        EXPECT_EQ(file.position(), 5u);
    }
    EXPECT_EQ(m.bytes().substr(0, 4), be32(0x10));
    EXPECT_EQ(m.bytes().substr(12, 16), be32(1) + "mdat" + be64(0x0102030405060708ull));
}

TEST(BoxHeader, TruncatedAndOverrunningBoxes) {
    // udta claims 20 bytes but its child claims 100: the child is cut, its
    // size kept, and its fields outside the parent are not read.
    MovieFile over(box("moov", be32(20) + "udta" + be32(100) + "loci" + Bytes(4, 0)) + box("free"));
    auto* loci = typed<MP4::LOCI>(over, "moov.udta.loci");
    ASSERT_NE(loci, nullptr);
    EXPECT_EQ(loci->size, 100u);
    EXPECT_FALSE(loci->hasPosition);
    EXPECT_EQ(over.container.root()->children.size(), 2u);
    // A file ending inside a header's fields reads zeros.
    MovieFile cut(box("moov", mvhd(1, 77, 1000, 5000)).substr(0, 26));
    ASSERT_NE(typed<MP4::MVHD>(cut, "moov.mvhd"), nullptr);
    EXPECT_EQ(typed<MP4::MVHD>(cut, "moov.mvhd")->creationTime, 0u);
    // Fewer than eight bytes of header, and a large size of zero, end the list.
    for (const Bytes& bytes :
         {box("free", "ab") + "\x00\x00\x00", be32(1) + "free" + be64(0) + box("skip")}) {
        EXPECT_EQ(MovieFile(bytes).container.root()->children.size(), 1u);
    }
}

TEST(BoxHeader, UuidBoxesBelowTwentyFourBytesAreNeverTheSpatialContainer) {
    MovieFile m(be32(20) + "uuid" + kSpatialUuid.substr(0, 12) +
                uuidBox(kSpatialUuid, box("KADT", "pcm!") + container("KATR", {tkhd(0, 1, 0, 0)})) +
                uuidBox(std::string(16, '\x11'), Bytes(1500, 'p')));
    const auto& kids = m.container.root()->children;
    ASSERT_EQ(kids.size(), 3u);
    EXPECT_FALSE(kids[0]->hasChild());
    EXPECT_TRUE(kids[1]->hasChild());
    EXPECT_NE(m.first("uuid.KATR.tkhd"), nullptr);
    EXPECT_EQ(dynamic_cast<MP4::UUID&>(*kids[2]).payload.size, 1500u);
}

TEST(Hostile, TableCountsAreBelievedOnlyAsFarAsTheBytes) {
    // 1,000,000,000 entries claimed in a 100-byte box.
    const Bytes stbl = box("stbl", fullBox("stsz", 0, 0, be32(0) + be32(1000000000) + Bytes(80, '\x01')) +
                                       fullBox("stts", 0, 0, be32(0xFFFFFFFF) + Bytes(16, '\x02')) +
                                       fullBox("stsc", 0, 0, be32(0x40000000) + Bytes(24, '\x03')));
    MovieFile m(box("moov", box("trak", box("mdia", box("minf", stbl)))));
    const std::string base = "moov.trak.mdia.minf.stbl.";
    ASSERT_NE(typed<MP4::STSZ>(m, base + "stsz"), nullptr);
    EXPECT_EQ(typed<MP4::STSZ>(m, base + "stsz")->sampleCount, 1000000000u);
    EXPECT_EQ(typed<MP4::STSZ>(m, base + "stsz")->sizes.size(), 20u);
    EXPECT_EQ(typed<MP4::STTS>(m, base + "stts")->entries.size(), 2u);
    EXPECT_EQ(typed<MP4::STSC>(m, base + "stsc")->entries.size(), 2u);
}

TEST(Hostile, DeeplyNestedBoxesDoNotExhaustTheStack) {
    // trak > uuid(spatial) > KATR > uuid(spatial) > KATR ... 4,000 levels.
    Bytes inner = box("free");
    for (int i = 0; i < 2000; ++i) inner = uuidBox(kSpatialUuid, box("KATR", inner));
    MovieFile m(box("moov", box("trak", inner)));
    size_t depth = 0;
    for (const MP4::BOX* b = m.container.root()->children[0].get(); b != nullptr && b->hasChild(); ++depth) {
        const auto& kids = static_cast<const MP4::NestedBox*>(b)->children;
        b = kids.empty() ? nullptr : kids[0].get();
    }
    EXPECT_LE(depth, MP4::kMaxParseDepth + 1);
    EXPECT_GT(depth, 10u);
}

TEST(Hostile, RandomBytesEmptyFilesAndDirectoriesParseWithoutHarm) {
    uint32_t seed = 12345;
    for (int round = 0; round < 50; ++round) {
        Bytes bytes(4096, '\0');
        for (auto& c : bytes) c = char((seed = seed * 1664525u + 1013904223u) >> 24);
        // Real box types, so the typed readers run.
        bytes.replace(0, 16, be32(4000) + "moov" + be32(seed % 400) + (round % 2 ? "trak" : "udta"));
        MovieFile m(bytes);
        dumpOf(m);
    }
    MovieFile empty{Bytes()};
    EXPECT_TRUE(empty.container.root()->children.empty());
    EXPECT_EQ(empty.container.moov(), nullptr);
    MP4::Container directory;
    EXPECT_TRUE(directory.attach(empty.dir.wfile("")));
    EXPECT_TRUE(directory.root()->children.empty());
}

TEST(TypedBoxes, VersionWidthsAndTheTwoLocationForms) {
    const Bytes xyz = be32(12 + 18) + "\xA9xyz" + be16(18) + be16(0x15C7) + "+35.6586+139.7454/";
    const Bytes loci = box("loci", Bytes(8, '\0') + be32(uint32_t(-1 * 65536)) + be32(2 << 16));
    MovieFile m(box("moov", mvhd(1, 0x123456789ull, 600, 1200) + box("udta", xyz + loci + box("@xyz", "+1+2/")) +
                                container("trak", {tkhd(0, 0x1122334455ull, 3840, 1920)})));
    EXPECT_EQ(typed<MP4::MVHD>(m, "moov.mvhd")->creationTime, 0x123456789ull);
    EXPECT_EQ(typed<MP4::TKHD>(m, "moov.trak.tkhd")->creationTime, 0x22334455u);  // version 0: 32 bits
    EXPECT_EQ(typed<MP4::XYZ>(m, "moov.udta.\xA9xyz")->text, "+35.6586+139.7454/");
    EXPECT_DOUBLE_EQ(typed<MP4::LOCI>(m, "moov.udta.loci")->longitude, -1.0);
    EXPECT_EQ(typed<MP4::XYZ>(m, "moov.udta.@xyz"), nullptr);  // the 0x40 form stays plain
}

TEST(PathSearch, BytesComparedAsStoredAndFalseStopsOnlyTheSiblingList) {
    MovieFile movie(buildMovie({}));
    size_t visits = 0;
    movie.container.find("moov.trak.tkhd", [&](MP4::BOX&) { return ++visits, false; });
    EXPECT_EQ(visits, 2u);  // one tkhd in each of the two tracks

    MovieFile m(box("moov", box("udta", box("@mod", "KORVA") + be32(8) + "\xA9mod")));
    EXPECT_EQ(count(m, "moov.udta.@mod") + count(m, "moov.udta.\xA9mod"), 2u);
    EXPECT_EQ(count(m, "moov.udta.@mo") + count(m, "moov.udt") + count(m, "moov.udta.@mod.x"), 0u);
    // The first mdat and moov are remembered, and the track with a width.
    MovieFile r(buildMovie({.moovFirst = false}) + box("mdat", "second") + box("moov"));
    EXPECT_LT(r.container.mdat()->start, r.container.moov()->start);
    EXPECT_GT(r.container.moov()->size, 8u);
    MovieFile q(box("moov", container("trak", {tkhd(0, 0, 0, 0)}) + container("trak", {tkhd(0, 0, 64, 32)}) +
                                container("trak", {tkhd(0, 0, 0, 0)})));
    ASSERT_NE(q.container.videoTrack(), nullptr);
    EXPECT_EQ(q.container.videoTrack()->start, 8u + 8 + 92);
}

TEST(Dump, LinesIndentByDepthWithEachBoxsFieldsAndGoOnlyWhereTheCallerSays) {
    MovieFile m(box("moov", container("trak", {tkhd(0, 6, 64, 32)})));
    const std::wstring expected =
        L"MP4: == 'root': start=0 bytes=108 ==\nMP4: <'moov': start=0 bytes=108 children=1 >\n"
        L"MP4:     <'trak': start=8 bytes=100 children=1 >\n"
        L"MP4:         <'tkhd': start=16 bytes=92 timeStamp=6 width=64 height=32 >\n";
    ConsoleCapture console;
    EXPECT_EQ(dumpOf(m), expected);

    // An unreadable configuration record adds its line to the same output;
    // an SPS's cause shows only its first character, as it always has.
    const std::pair<Bytes, std::wstring> records[] = {
        {Bytes("\x01", 1), L"avcc.parse() failed: "},
        {Bytes("\x01\x42\x00\x1e\xff\xe0\x00", 7), L"avcc.sps_parse() failed: n\n"}};
    for (const auto& [payload, line] : records) {
        MP4::AVCC avcc(0, 0, payload.size() + 8, MP4::fourcc("avcC"), nullptr);
        avcc.payload = ByteArray(payload.data(), payload.size());
        std::wstring text;
        avcc.dump([&text](const std::wstring& l) { text += l; });
        const std::wstring header = L"MP4: <'avcC': start=0 bytes=" + std::to_wstring(payload.size() + 8) + L" >\n";
        EXPECT_EQ(text.substr(0, header.size() + line.size()), header + line);
    }
    EXPECT_EQ(console.text(), "");
}
