// Movies in every top-level layout writers use, made here from one ffmpeg
// movie: by ffmpeg itself, by GStreamer's muxers remuxing it, by
// AtomicParsley tagging it, and by a byte-level builder of this file for
// what no tool here writes (several media-data boxes between free, skip,
// wide and uuid boxes, 64-bit box sizes, 64-bit chunk offsets, a last box
// sized to the end of the file, a movie over 4 GiB). The metadata path must
// keep every packet of each.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "run_outcome.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::readFile;
using testsupport::shellQuote;

std::string be32(uint64_t v) {
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(v >> (24 - 8 * i));
    return s;
}
std::string be64(uint64_t v) { return be32(v >> 32) + be32(v & 0xffffffffu); }
uint64_t readBE(const std::string& s, uint64_t at, int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v = (v << 8) | static_cast<unsigned char>(s.at(at + i));
    return v;
}
std::string box(const std::string& type, const std::string& payload) {
    return be32(8 + payload.size()) + type + payload;
}

// A box of the movie box as the builder takes it apart: the boxes on the
// way to the chunk offsets are opened, every other one is kept whole.
struct Node {
    std::string type;
    std::string payload;
    std::vector<Node> children;
    bool opened = false;
};

std::vector<Node> parse(const std::string& s, uint64_t begin, uint64_t end) {
    static const std::set<std::string> opened = {"moov", "trak", "mdia", "minf", "stbl"};
    std::vector<Node> nodes;
    while (begin + 8 <= end) {
        uint64_t size = readBE(s, begin, 4), header = 8;
        if (size == 1) size = readBE(s, begin + 8, 8), header = 16;
        if (size < header || begin + size > end) throw std::runtime_error("a box overruns its parent");
        Node n{s.substr(begin + 4, 4), "", {}, false};
        if (opened.count(n.type)) {
            n.opened = true;
            n.children = parse(s, begin + header, begin + size);
        } else {
            n.payload = s.substr(begin + header, size - header);
        }
        nodes.push_back(std::move(n));
        begin += size;
    }
    return nodes;
}

bool isChunkOffsets(const Node& n) { return n.type == "stco" || n.type == "co64"; }

std::vector<uint64_t> offsetsOf(const Node& n) {
    const int width = n.type == "co64" ? 8 : 4;
    std::vector<uint64_t> offsets;
    for (uint64_t i = 0, count = readBE(n.payload, 4, 4); i < count; ++i) {
        offsets.push_back(readBE(n.payload, 8 + width * i, width));
    }
    return offsets;
}

void collectOffsets(const std::vector<Node>& nodes, std::vector<uint64_t>& out) {
    for (const Node& n : nodes) {
        if (isChunkOffsets(n)) {
            const auto o = offsetsOf(n);
            out.insert(out.end(), o.begin(), o.end());
        }
        collectOffsets(n.children, out);
    }
}

std::string serialize(const std::vector<Node>& nodes, bool co64, const std::function<uint64_t(uint64_t)>& place) {
    std::string out;
    for (const Node& n : nodes) {
        if (n.opened) {
            out += box(n.type, serialize(n.children, co64, place));
        } else if (isChunkOffsets(n)) {
            const auto offsets = offsetsOf(n);
            std::string table = n.payload.substr(0, 4) + be32(offsets.size());
            for (uint64_t o : offsets) {
                const uint64_t moved = place(o);
                if (!co64 && moved > 0xffffffffu) throw std::runtime_error("a chunk offset needs co64");
                table += co64 ? be64(moved) : be32(moved);
            }
            out += box(co64 ? "co64" : "stco", table);
        } else {
            out += box(n.type, n.payload);
        }
    }
    return out;
}

// One top-level box of a layout: bytes as they are, the movie box, or a
// media-data box holding pieces of the source's media data in order, with
// holes (zeros, left unwritten in the file) between them if asked.
struct Item {
    enum Kind { Bytes, Moov, Mdat } kind;
    std::string bytes;            // Bytes
    std::vector<int64_t> pieces;  // Mdat: piece index, or -n for a hole of n bytes
    bool largeSize = false;       // Mdat: size 1 and a 64-bit size
    bool toEnd = false;           // Mdat: size 0, up to the end of the file
};

Item bytes(const std::string& b) { return {Item::Bytes, b, {}}; }
Item moov() { return {Item::Moov, "", {}}; }
Item mdat(std::vector<int64_t> pieces, bool largeSize = false, bool toEnd = false) {
    return {Item::Mdat, "", std::move(pieces), largeSize, toEnd};
}
Item uuidBox() { return bytes(box("uuid", std::string("\x5a\x1e\x07\x3c\x9b\x44\x4d\x21\x8e\x60\x3f\x12\xa4\x77\x0b\xd5", 16) + "any payload")); }

struct Layout {
    std::string name;
    std::vector<Item> items;
    bool co64 = false;
};

// Writes the source movie (ftyp, media data, movie box, as ffmpeg writes
// it) in the layout: its media data cut at chunk starts into as many
// pieces as the layout names, every chunk offset moved with its piece.
void build(const std::filesystem::path& sourcePath, const Layout& layout, const std::filesystem::path& outPath) {
    const std::string src = readFile(sourcePath);
    std::string ftyp;
    uint64_t mediaStart = 0, mediaSize = 0;
    std::vector<Node> movie;
    for (uint64_t at = 0; at + 8 <= src.size();) {
        const uint64_t size = readBE(src, at, 4);
        const std::string type = src.substr(at + 4, 4);
        if (type == "ftyp") ftyp = src.substr(at, size);
        if (type == "mdat") mediaStart = at + 8, mediaSize = size - 8;
        if (type == "moov") movie = parse(src, at, at + size);
        at += size;
    }
    if (ftyp.empty() || mediaSize == 0 || movie.empty()) throw std::runtime_error("unexpected source layout");

    int pieceCount = 0;
    for (const Item& item : layout.items) {
        for (int64_t p : item.pieces) pieceCount += p >= 0;
    }
    // Cuts at the chunk starts nearest to equal parts.
    std::vector<uint64_t> chunks;
    collectOffsets(movie, chunks);
    std::sort(chunks.begin(), chunks.end());
    std::vector<uint64_t> cuts = {0};
    for (int i = 1; i < pieceCount; ++i) {
        const uint64_t target = mediaSize * i / pieceCount;
        const auto c = std::lower_bound(chunks.begin(), chunks.end(), mediaStart + target);
        if (c == chunks.end() || *c - mediaStart <= cuts.back()) throw std::runtime_error("too few chunks to cut");
        cuts.push_back(*c - mediaStart);
    }
    cuts.push_back(mediaSize);

    // Where each piece lands; the movie box's size does not depend on it.
    const uint64_t moovSize = serialize(movie, layout.co64, [](uint64_t) { return 0; }).size();
    std::vector<uint64_t> landing(pieceCount);
    uint64_t at = ftyp.size();
    for (const Item& item : layout.items) {
        if (item.kind == Item::Bytes) at += item.bytes.size();
        if (item.kind == Item::Moov) at += moovSize;
        if (item.kind != Item::Mdat) continue;
        at += item.largeSize ? 16 : 8;
        for (int64_t p : item.pieces) {
            if (p >= 0) landing[p] = at;
            at += p >= 0 ? cuts[p + 1] - cuts[p] : static_cast<uint64_t>(-p);
        }
    }
    const auto place = [&](uint64_t offset) {
        const uint64_t rel = offset - mediaStart;
        const auto piece = std::upper_bound(cuts.begin(), cuts.end(), rel) - cuts.begin() - 1;
        return landing[piece] + rel - cuts[piece];
    };
    const std::string moovBytes = serialize(movie, layout.co64, place);

    std::ofstream out(outPath, std::ios::binary | std::ios::trunc);
    out << ftyp;
    for (const Item& item : layout.items) {
        if (item.kind == Item::Bytes) out << item.bytes;
        if (item.kind == Item::Moov) out << moovBytes;
        if (item.kind != Item::Mdat) continue;
        uint64_t payload = 0;
        for (int64_t p : item.pieces) payload += p >= 0 ? cuts[p + 1] - cuts[p] : static_cast<uint64_t>(-p);
        if (item.toEnd) {
            out << be32(0) << "mdat";
        } else if (item.largeSize) {
            out << be32(1) << "mdat" << be64(16 + payload);
        } else {
            out << be32(8 + payload) << "mdat";
        }
        for (int64_t p : item.pieces) {
            if (p >= 0) {
                out.write(src.data() + mediaStart + cuts[p], static_cast<std::streamsize>(cuts[p + 1] - cuts[p]));
            } else {
                out.seekp(-p, std::ios::cur);  // a hole in the file
            }
        }
    }
    if (!out) throw std::runtime_error("cannot write " + outPath.string());
}

const std::string kFree = box("free", std::string(24, '\0'));
const std::string kSkip = box("skip", "skipped bytes");
const std::string kWide = box("wide", "");

std::vector<Layout> builtLayouts() {
    return {
        {"SeveralMdatsBetweenFreeSkipWideAndUuid",
         {bytes(kFree), mdat({0}), bytes(kSkip), bytes(kWide), mdat({1}), uuidBox(), mdat({2}), bytes(kFree), moov()}},
        {"SeveralMdatsAfterTheMovieBox",
         {bytes(kWide), moov(), bytes(kFree), mdat({0}), bytes(kSkip), mdat({1}), uuidBox()}},
        {"MdatWith64BitSize", {bytes(kFree), mdat({0}, true), moov()}},
        {"MdatWith64BitSizeAfterTheMovieBox", {moov(), mdat({0}, true)}},
        {"ChunkOffsets64", {bytes(kWide), mdat({0}), moov()}, true},
        {"ChunkOffsets64MovieBoxFirst", {moov(), bytes(kFree), mdat({0, 1}, true), mdat({2})}, true},
        {"MdatFreeMoov", {mdat({0}), bytes(kFree), moov()}},
        {"MovieBoxThenFreeAtTheEnd", {mdat({0}), moov(), bytes(kFree)}},
        {"LastMdatSizedToTheEndOfTheFile", {moov(), bytes(kFree), mdat({0}, false, true)}},
    };
}

void expectKept(const Workspace& work) {
    const auto run = runIn(work, tavrelCommand() + " " + shellQuote(work.source().filename().string()) + " out.mp4");
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    expectSamePackets(work.source(), work.output());
    EXPECT_EQ(namesIn(work.dir()), (std::vector<std::string>{work.source().filename().string(), "out.mp4"}));
}

void PrintTo(const Layout& l, std::ostream* os) { *os << l.name; }

class BuiltLayout : public testing::TestWithParam<Layout> {};

TEST_P(BuiltLayout, MetadataPathKeepsEveryPacket) {
    Workspace work;
    build(sourceMovie(Source::Plain), GetParam(), work.file("layout.mp4"));
    // The builder itself must not have lost a packet.
    ASSERT_EQ(packetsByStream(work.file("layout.mp4")), packetsByStream(sourceMovie(Source::Plain)));
    work.adopt("layout.mp4");
    expectKept(work);
}

INSTANTIATE_TEST_SUITE_P(Layouts, BuiltLayout, testing::ValuesIn(builtLayouts()),
                         [](const auto& p) { return p.param.name; });

// What a tool makes from the ffmpeg source, as a shell command reading
// "in.mp4" and writing "layout.mp4" in the working directory.
struct ToolLayout {
    std::string name;
    std::string command;
};

std::string remux(const std::string& muxer) {
    // The demuxer's H.264 is already in access units; without a parser here
    // the muxer only needs to be told so.
    return "timeout 60 gst-launch-1.0 -q filesrc location=in.mp4 ! qtdemux name=d " + muxer +
           " name=m ! filesink location=layout.mp4 d.video_0 ! queue ! capssetter "
           "caps='video/x-h264,parsed=(boolean)true' ! m.video_0 d.audio_0 ! queue ! aacparse ! m.audio_0";
}

std::vector<ToolLayout> toolLayouts() {
    const std::string ffmpeg = "ffmpeg -nostdin -v error -y -i in.mp4 -map 0 -c copy ";
    const std::string tag = "AtomicParsley in.mp4 --title Layout --artwork cover.jpg ";
    return {
        {"FfmpegMoovFirst", ffmpeg + "-movflags +faststart layout.mp4"},
        {"FfmpegMoovFirstWithRoomReserved", ffmpeg + "-moov_size 16384 layout.mp4"},
        {"FfmpegFragmented", ffmpeg + "-movflags +frag_keyframe+empty_moov+default_base_moof layout.mp4"},
        // Track-fragment headers that name absolute positions, and an index.
        {"FfmpegFragmentedAtAbsolutePositions", ffmpeg + "-movflags +frag_keyframe layout.mp4"},
        {"FfmpegMov", ffmpeg + "-f mov layout.mp4"},
        {"GStreamerMp4mux", remux("mp4mux")},
        {"GStreamerQtmux", remux("qtmux")},
        {"GStreamerMp4muxFaststart", remux("mp4mux faststart=true")},
        {"GStreamerMp4muxFragmented", remux("mp4mux fragment-duration=500")},
        {"GStreamerQtmuxMoovFirstWithRoomReserved",
         remux("qtmux reserved-max-duration=10000000000 reserved-moov-update-period=100000000")},
        {"AtomicParsleyTagged", tag + "-o layout.mp4"},
        {"AtomicParsleyTaggedWithRoomToGrow", "AP_PADDING=DEFAULT_PAD=8192 " + tag + "--freefree -o layout.mp4"},
        {"AtomicParsleyTaggedKeepingTheMovieBoxLast", tag + "--preventOptimizing -o layout.mp4"},
        {"AtomicParsleyTaggedTwice",
         tag + "-o tagged.mp4 && AtomicParsley tagged.mp4 --artist Layout --comment Again -o layout.mp4 && rm tagged.mp4"},
    };
}

void PrintTo(const ToolLayout& l, std::ostream* os) { *os << l.name; }

class ToolMadeLayout : public testing::TestWithParam<ToolLayout> {};

TEST_P(ToolMadeLayout, MetadataPathKeepsEveryPacket) {
    Workspace work;
    std::filesystem::copy_file(sourceMovie(Source::Plain), work.file("in.mp4"));
    const auto made = testsupport::runCommand(
        "cd " + shellQuote(work.dir().string()) +
            " && ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64 -frames:v 1 cover.jpg && " +
            GetParam().command + " >/dev/null && rm in.mp4 cover.jpg",
        true);
    ASSERT_EQ(made.status, 0) << GetParam().command << "\n" << made.output;
    // Artwork comes as a stream of its own.
    ASSERT_GE(packetsByStream(work.file("layout.mp4")).size(), 2u) << "the tool lost a stream";
    work.adopt("layout.mp4");
    expectKept(work);
}

INSTANTIATE_TEST_SUITE_P(Layouts, ToolMadeLayout, testing::ValuesIn(toolLayouts()),
                         [](const auto& p) { return p.param.name; });

// Slow: a movie over 4 GiB with its movie box last, made sparse: the media
// data holds a hole of 4.25 GiB between its two pieces, so the second
// piece's chunk offsets need 64 bits.
TEST(SlowLayout, MoovLastOver4GiB) {
    const uint64_t hole = (uint64_t{17} << 28);
    const auto space = std::filesystem::space(std::filesystem::temp_directory_path());
    if (space.available < 3 * hole) GTEST_SKIP() << "not enough free space for a copy of a 4 GiB movie";
    Workspace work;
    build(sourceMovie(Source::Plain), {"", {bytes(kFree), mdat({0, -static_cast<int64_t>(hole), 1}, true), moov()}, true},
          work.file("big.mp4"));
    ASSERT_GT(std::filesystem::file_size(work.file("big.mp4")), hole);
    ASSERT_EQ(packetsByStream(work.file("big.mp4")), packetsByStream(sourceMovie(Source::Plain)));
    work.adopt("big.mp4");
    expectKept(work);
}

}  // namespace
}  // namespace e2e
