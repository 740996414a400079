// The box tree: header forms, truncation and overruns, typing, path search.
#include <gtest/gtest.h>

#include "mp4/avcc_box.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "mp4/user_data_boxes.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "support/test_files.h"

using namespace testsupport;
using namespace builders;
using MP4::fourcc;

namespace {

struct Parsed {
    TempDir dir;
    MP4::Container container;
    explicit Parsed(const Bytes& bytes) {
        writeFile(dir.file("m.mp4"), bytes);
        EXPECT_TRUE(container.attach(dir.wfile("m.mp4")));
    }
    MP4::ROOT& root() { return *container.root(); }
    MP4::BOX* first(const char* path) {
        MP4::BOX* found = nullptr;
        container.find(path, [&](MP4::BOX& b) {
            found = &b;
            return false;
        });
        return found;
    }
    std::vector<MP4::BOX*> all(const char* path) {
        std::vector<MP4::BOX*> found;
        container.find(path, [&](MP4::BOX& b) {
            found.push_back(&b);
            return true;
        });
        return found;
    }
};

const std::string kSpatialUuid("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);

}  // namespace

TEST(BoxHeader, SizeZeroRunsToTheEndOfTheFile) {
    Parsed p(box("ftyp", "isom") + be32(0) + "mdat" + Bytes(100, 'x'));
    ASSERT_EQ(p.root().children.size(), 2u);
    const auto& mdat = *p.root().children[1];
    EXPECT_EQ(mdat.start, 12u);
    EXPECT_EQ(mdat.size, 108u);
    EXPECT_EQ(p.container.mdat(), &mdat);
}

TEST(BoxHeader, LargeSizeIsKeptAndRewrittenAtStartPlusEight) {
    Parsed p(box("ftyp", "isom") + largeBox("mdat", Bytes(20, 'x')) + box("free"));
    ASSERT_EQ(p.root().children.size(), 3u);
    auto& mdat = *p.root().children[1];
    EXPECT_TRUE(mdat.largeSize);
    EXPECT_EQ(mdat.size, 36u);
    EXPECT_EQ(p.root().children[2]->start, 48u);

    {
        MP4::BinFile file(p.dir.wfile("m.mp4"), 'a');
        EXPECT_TRUE(mdat.writeSize(file, 0x0102030405060708ull));
    }
    const Bytes bytes = readFile(p.dir.file("m.mp4"));
    EXPECT_EQ(bytes.substr(12, 8), be32(1) + "mdat");
    EXPECT_EQ(bytes.substr(20, 8), be64(0x0102030405060708ull));
}

TEST(BoxHeader, SmallSizeWritesTheLow32Bits) {
    Parsed p(box("free", "abcd"));
    {
        MP4::BinFile file(p.dir.wfile("m.mp4"), 'a');
        file.seek(5);
        EXPECT_TRUE(p.root().children[0]->writeSize(file, 0x100000010ull));
        EXPECT_EQ(file.position(), 5u);
    }
    EXPECT_EQ(readFile(p.dir.file("m.mp4")).substr(0, 4), be32(0x10));
}

TEST(BoxHeader, UuidBelowTwentyFourBytesIsNeverTheSpatialContainer) {
    const Bytes small = be32(20) + "uuid" + kSpatialUuid.substr(0, 12);
    const Bytes spatial = uuidBox(kSpatialUuid, box("KADT", "pcm!") +
                                                    container("KATR", {tkhd(0, 1, 0, 0)}));
    Parsed p(small + spatial);
    ASSERT_EQ(p.root().children.size(), 2u);
    auto* a = dynamic_cast<MP4::UUID*>(p.root().children[0].get());
    auto* b = dynamic_cast<MP4::UUID*>(p.root().children[1].get());
    ASSERT_TRUE(a && b);
    EXPECT_FALSE(a->hasChild());
    EXPECT_TRUE(b->hasChild());
    ASSERT_EQ(b->children.size(), 2u);
    EXPECT_NE(dynamic_cast<MP4::TRAK*>(b->children[1].get()), nullptr);
    EXPECT_NE(p.first("uuid.KATR.tkhd"), nullptr);
    EXPECT_TRUE(b->payload.empty());
}

TEST(BoxHeader, OrdinaryUuidKeepsItsPayload) {
    const std::string id(16, '\x11');
    Parsed p(uuidBox(id, Bytes(1500, 'p')));
    auto* u = dynamic_cast<MP4::UUID*>(p.root().children[0].get());
    ASSERT_NE(u, nullptr);
    EXPECT_EQ(u->payload.size, 1500u);
    EXPECT_EQ(std::string(u->userType.begin(), u->userType.end()), id);
}

TEST(Truncation, ChildRunningPastItsParentIsCutButItsSizeIsKept) {
    // udta claims 20 bytes but its child claims 100.
    const Bytes moov = box("moov", be32(20) + "udta" + be32(100) + "loci" + Bytes(4, 0));
    Parsed p(moov + box("free"));
    auto* loci = dynamic_cast<MP4::LOCI*>(p.first("moov.udta.loci"));
    ASSERT_NE(loci, nullptr);
    EXPECT_EQ(loci->size, 100u);
    EXPECT_FALSE(loci->hasPosition);  // its fields lie outside the parent
    EXPECT_EQ(p.root().children.size(), 2u);
}

TEST(Truncation, TruncatedFileYieldsZeroesAndEndsTheList) {
    const Bytes full = box("moov", mvhd(1, 77, 1000, 5000));
    Parsed p(full.substr(0, 26));
    auto* mvhd = dynamic_cast<MP4::MVHD*>(p.first("moov.mvhd"));
    ASSERT_NE(mvhd, nullptr);
    EXPECT_EQ(mvhd->creationTime, 0u);  // needs 8 bytes, only 6 are there
}

TEST(Truncation, HeaderShorterThanEightBytesEndsTheList) {
    Parsed p(box("free", "ab") + "\x00\x00\x00");
    EXPECT_EQ(p.root().children.size(), 1u);
}

TEST(Truncation, ZeroLargeSizeDoesNotLoopForever) {
    Parsed p(be32(1) + "free" + be64(0) + box("skip"));
    EXPECT_EQ(p.root().children.size(), 1u);
}

TEST(Hostile, TableCountsAreBelievedOnlyAsFarAsTheBytes) {
    // 1,000,000,000 entries claimed in a 100-byte box.
    const Bytes stsz = fullBox("stsz", 0, 0, be32(0) + be32(1000000000) + Bytes(80, '\x01'));
    const Bytes stts = fullBox("stts", 0, 0, be32(0xFFFFFFFF) + Bytes(16, '\x02'));
    const Bytes stsc = fullBox("stsc", 0, 0, be32(0x40000000) + Bytes(24, '\x03'));
    Parsed p(container("moov", {container("trak", {container("mdia", {container(
                                    "minf", {container("stbl", {stsz, stts, stsc})})})})}));
    auto* z = dynamic_cast<MP4::STSZ*>(p.first("moov.trak.mdia.minf.stbl.stsz"));
    auto* t = dynamic_cast<MP4::STTS*>(p.first("moov.trak.mdia.minf.stbl.stts"));
    auto* c = dynamic_cast<MP4::STSC*>(p.first("moov.trak.mdia.minf.stbl.stsc"));
    ASSERT_TRUE(z && t && c);
    EXPECT_EQ(z->sampleCount, 1000000000u);
    EXPECT_EQ(z->sizes.size(), 20u);
    EXPECT_EQ(t->entries.size(), 2u);
    EXPECT_EQ(c->entries.size(), 2u);
}

TEST(Hostile, DeeplyNestedBoxesDoNotExhaustTheStack) {
    // trak > uuid(spatial) > KATR > uuid(spatial) > KATR ... 4,000 levels.
    Bytes inner = box("free");
    for (int i = 0; i < 2000; ++i) {
        inner = box("KATR", inner);
        inner = uuidBox(kSpatialUuid, inner);
    }
    Parsed p(box("moov", box("trak", inner)));
    size_t depth = 0;
    const MP4::BOX* b = p.root().children[0].get();
    while (b != nullptr && b->hasChild()) {
        const auto& kids = static_cast<const MP4::NestedBox*>(b)->children;
        b = kids.empty() ? nullptr : kids[0].get();
        ++depth;
    }
    EXPECT_LE(depth, MP4::kMaxParseDepth + 1);
    EXPECT_GT(depth, 10u);
}

TEST(Hostile, RandomBytesParseWithoutHarm) {
    uint32_t seed = 12345;
    for (int round = 0; round < 50; ++round) {
        Bytes bytes(4096, '\0');
        for (auto& c : bytes) {
            seed = seed * 1664525u + 1013904223u;
            c = char(seed >> 24);
        }
        // Sprinkle real box types so the typed parsers run.
        bytes.replace(4, 4, "moov");
        bytes.replace(0, 4, be32(4000));
        bytes.replace(12, 4, round % 2 ? "trak" : "udta");
        Parsed p(bytes);
        ConsoleCapture capture;
        p.container.dump();
    }
}

TEST(Hostile, EmptyFileAndDirectory) {
    Parsed empty{Bytes()};
    EXPECT_TRUE(empty.root().children.empty());
    EXPECT_EQ(empty.container.moov(), nullptr);

    TempDir dir;
    MP4::Container c;
    EXPECT_TRUE(c.attach(testsupport::widen(dir.path().string())));
    EXPECT_TRUE(c.root()->children.empty());
}

TEST(TypedBoxes, HeadersInBothVersions) {
    Parsed p(box("moov", mvhd(1, 0x123456789ull, 600, 1200) +
                             container("trak", {tkhd(0, 0x1122334455ull, 3840, 1920),
                                                container("mdia", {mdhd(1, 9, 48000, 96000)})})));
    auto* mv = dynamic_cast<MP4::MVHD*>(p.first("moov.mvhd"));
    auto* tk = dynamic_cast<MP4::TKHD*>(p.first("moov.trak.tkhd"));
    auto* md = dynamic_cast<MP4::MDHD*>(p.first("moov.trak.mdia.mdhd"));
    ASSERT_TRUE(mv && tk && md);
    EXPECT_EQ(mv->creationTime, 0x123456789ull);
    EXPECT_FLOAT_EQ(mv->timeScale, 600.0f);
    EXPECT_FLOAT_EQ(mv->durationSeconds, 2.0f);
    EXPECT_EQ(tk->creationTime, 0x22334455u);  // version 0 keeps 32 bits
    EXPECT_EQ(tk->width, 3840u);
    EXPECT_EQ(tk->height, 1920u);
    EXPECT_EQ(md->timeScale, 48000u);
    EXPECT_EQ(md->duration, 96000u);
    EXPECT_EQ(md->creationTime, 9u);
}

TEST(TypedBoxes, SampleTablesAndChunkOffsetTables) {
    const Bytes stbl = container(
        "stbl", {stts({{10, 1000}, {2, 500}}), stsc({{1, 2, 1}}), stsz(0, {5, 6, 7}),
                 stsz(16, {}, 99), stco({100, 200}), co64({1ull << 40})});
    Parsed p(container("moov", {container("trak", {container("mdia", {container("minf", {stbl})})})}));
    const std::string base = "moov.trak.mdia.minf.stbl.";
    auto* t = dynamic_cast<MP4::STTS*>(p.first((base + "stts").c_str()));
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->entries.size(), 2u);
    EXPECT_EQ(t->entries[1].sampleCount, 2u);
    EXPECT_EQ(t->entries[1].sampleDelta, 500u);
    auto sizes = p.all((base + "stsz").c_str());
    ASSERT_EQ(sizes.size(), 2u);
    EXPECT_EQ(static_cast<MP4::STSZ*>(sizes[0])->sizes, (std::vector<uint32_t>{5, 6, 7}));
    EXPECT_TRUE(static_cast<MP4::STSZ*>(sizes[1])->sizes.empty());
    EXPECT_EQ(static_cast<MP4::STSZ*>(sizes[1])->sampleCount, 99u);
    auto* co = dynamic_cast<MP4::STCO*>(p.first((base + "stco").c_str()));
    auto* co64box = dynamic_cast<MP4::CO64*>(p.first((base + "co64").c_str()));
    ASSERT_TRUE(co && co64box);
    EXPECT_EQ(co->entryCount, 2u);
    EXPECT_EQ(co->tableOffset, co->start + 16);
    EXPECT_EQ(co->entryWidth(), 4u);
    EXPECT_EQ(co64box->entryWidth(), 8u);
}

TEST(TypedBoxes, UserDataLocationBoxes) {
    const Bytes xyzA9 = be32(12 + 18) + "\xA9xyz" + be16(18) + be16(0x15C7) + "+35.6586+139.7454/";
    const Bytes loci = box("loci", Bytes(8, '\0') + be32(uint32_t(-1 * 65536)) + be32(2 << 16));
    Parsed p(box("moov", box("udta", xyzA9 + loci + box("@xyz", "+1+2/"))));
    auto* x = dynamic_cast<MP4::XYZ*>(p.first("moov.udta.\xA9xyz"));
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->text, "+35.6586+139.7454/");
    EXPECT_EQ(x->language, 0x15C7);
    auto* l = dynamic_cast<MP4::LOCI*>(p.first("moov.udta.loci"));
    ASSERT_NE(l, nullptr);
    EXPECT_TRUE(l->hasPosition);
    EXPECT_FALSE(l->hasAltitude);
    EXPECT_DOUBLE_EQ(l->longitude, -1.0);
    EXPECT_DOUBLE_EQ(l->latitude, 2.0);
    MP4::BOX* at = p.first("moov.udta.@xyz");
    ASSERT_NE(at, nullptr);
    EXPECT_EQ(dynamic_cast<MP4::XYZ*>(at), nullptr);  // the 0x40 form stays plain
}

TEST(TypedBoxes, MetaHandlerAndSoundEntry) {
    Parsed p(fullBox("meta", 0, 0, hdlr("mdir", "Apple")) +
             container("moov", {container("trak", {container("mdia", {container("minf", {container(
                                    "stbl", {stsd({sowt(4, 16, 48000u << 16)})})})})})}));
    auto* h = dynamic_cast<MP4::HDLR*>(p.first("meta.hdlr"));
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->handlerType(), "mdir");
    EXPECT_EQ(h->name, std::string("Apple\0", 6));
    auto* s = dynamic_cast<MP4::SOWT*>(p.first("moov.trak.mdia.minf.stbl.stsd.sowt"));
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->channelCount, 4u);
    EXPECT_EQ(s->sampleSize, 16u);
    EXPECT_EQ(s->sampleRate, 48000u << 16);
}

TEST(PathSearch, FalseStopsOnlyTheSiblingList) {
    MovieShape shape;
    Parsed p(buildMovie(shape));
    int visits = 0;
    p.container.find("moov.trak.tkhd", [&](MP4::BOX&) {
        ++visits;
        return false;
    });
    EXPECT_EQ(visits, 2);  // one tkhd in each of the two tracks

    visits = 0;
    p.container.find("moov.trak", [&](MP4::BOX&) {
        ++visits;
        return false;
    });
    EXPECT_EQ(visits, 1);
}

TEST(PathSearch, BytesAreComparedAsStored) {
    Parsed p(box("moov", box("udta", box("@mod", "KORVA") + be32(8) + "\xA9mod")));
    EXPECT_EQ(p.all("moov.udta.@mod").size(), 1u);
    EXPECT_EQ(p.all("moov.udta.\xA9mod").size(), 1u);
    EXPECT_EQ(p.all("moov.udta.@mo").size(), 0u);
    EXPECT_EQ(p.all("moov.udt").size(), 0u);
    int missing = 0;
    p.container.if_not_found("moov.udta.loci", [&] { ++missing; });
    p.container.if_not_found("moov.udta.@mod", [&] { ++missing; });
    EXPECT_EQ(missing, 1);
    // A leaf is never searched into.
    EXPECT_EQ(p.all("moov.udta.@mod.x").size(), 0u);
}

TEST(Remembered, FirstMdatFirstMoovAndLastVideoTrack) {
    MovieShape shape;
    shape.moovFirst = false;
    Parsed p(buildMovie(shape) + box("mdat", "second") + box("moov"));
    ASSERT_NE(p.container.mdat(), nullptr);
    ASSERT_NE(p.container.moov(), nullptr);
    EXPECT_LT(p.container.mdat()->start, p.container.moov()->start);
    EXPECT_EQ(p.container.moov()->size, readFile(p.dir.file("m.mp4")).size() - 22 -
                                            p.container.moov()->start);
    ASSERT_NE(p.container.videoTrack(), nullptr);
    EXPECT_EQ(p.container.videoTrack(), p.all("moov.trak").front());

    // The track whose tkhd has a width wins, even when it comes last.
    Parsed q(box("moov", container("trak", {tkhd(0, 0, 0, 0)}) + container("trak", {tkhd(0, 0, 64, 32)}) +
                             container("trak", {tkhd(0, 0, 0, 0)})));
    EXPECT_EQ(q.container.videoTrack(), q.all("moov.trak")[1]);
}

TEST(Remembered, ParseUpToAnEndSeesOnlyTheBoxesBeforeIt) {
    Parsed p(box("ftyp", "isom") + box("moov", mvhd(0, 1, 1, 1)) + box("mdat", "x"));
    MP4::BinFile file(p.dir.wfile("m.mp4"), 'r');
    p.container.parse(file, 20);
    EXPECT_EQ(p.root().size, 20u);
    EXPECT_EQ(p.container.mdat(), nullptr);
    ASSERT_NE(p.container.moov(), nullptr);  // its header lies before the end
    EXPECT_EQ(p.first("moov.mvhd"), nullptr);
}
