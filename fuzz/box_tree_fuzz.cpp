// Parses arbitrary bytes as a movie and dumps it; then writes the tree back
// (typed boxes through their field lists, every other byte copied), parses
// what was written and aborts when the two trees disagree, or when writing
// the second tree gives other bytes than the first.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <typeinfo>

#include "fuzz/fuzz_file.h"
#include "mp4/container.h"
#include "mp4/container_boxes.h"
#include "mp4/field_buffer.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "mp4/uuid_box.h"

namespace {

[[noreturn]] void mismatch(const MP4::BOX& box, const char* what) {
    std::fprintf(stderr, "box tree round trip: '%s' at %llu: %s differs\n", box.name().c_str(),
                 static_cast<unsigned long long>(box.start), what);
    std::abort();
}

bool hasFields(const MP4::BOX& box) {
    std::vector<uint8_t> sink;
    MP4::Fields probe = MP4::Fields::into(sink);
    return const_cast<MP4::BOX&>(box).describe(probe);
}

// Writes box over its own bytes in out. `parentEnd` is where the parser
// stopped reading the box's parent. A typed box without children is its
// header, its fields and zeros to its end; one with children is its header,
// its fields and the children. Bytes of no typed box stay as they were.
void writeBox(const MP4::BOX& box, uint64_t parentEnd, std::string& out) {
    const uint64_t end = std::min<uint64_t>(std::max(box.start, std::min(box.end(), parentEnd)), out.size());
    if (hasFields(box)) {
        const uint64_t from = std::min(box.start + box.headerSize(), end);
        const auto fields = box.describedBytes();
        if (!box.hasChild()) std::memset(out.data() + from, 0, end - from);
        const uint64_t n = std::min<uint64_t>(fields.size(), end - from);
        std::memcpy(out.data() + from, fields.data(), n);
    }
    if (!box.hasChild()) return;
    for (const auto& child : static_cast<const MP4::NestedBox&>(box).children) writeBox(*child, end, out);
}

std::string writeTree(const MP4::ROOT& root, const uint8_t* data, size_t size) {
    std::string out(reinterpret_cast<const char*>(data), size);
    for (const auto& child : root.children) writeBox(*child, size, out);
    return out;
}

bool sameFloat(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

void compare(const MP4::BOX& a, const MP4::BOX& b) {
    if (typeid(a) != typeid(b)) mismatch(a, "class");
    if (a.type != b.type) mismatch(a, "type");
    if (a.start != b.start || a.size != b.size || a.largeSize != b.largeSize) mismatch(a, "place");
    if (a.depth != b.depth || a.hasChild() != b.hasChild()) mismatch(a, "nesting");
    if (a.describedBytes() != b.describedBytes()) mismatch(a, "fields");
    if (const auto* m = dynamic_cast<const MP4::MVHD*>(&a)) {
        const auto& n = static_cast<const MP4::MVHD&>(b);
        if (!sameFloat(m->timeScale, n.timeScale) || !sameFloat(m->durationSeconds, n.durationSeconds)) {
            mismatch(a, "seconds");
        }
    }
    if (const auto* t = dynamic_cast<const MP4::TKHD*>(&a)) {
        const auto& u = static_cast<const MP4::TKHD&>(b);
        if (t->width != u.width || t->height != u.height) mismatch(a, "picture size");
    }
    if (const auto* c = dynamic_cast<const MP4::STCO*>(&a)) {
        if (c->tableOffset != static_cast<const MP4::STCO&>(b).tableOffset) mismatch(a, "table offset");
    }
    if (const auto* d = dynamic_cast<const MP4::STSD*>(&a)) {
        if (d->entryCount != static_cast<const MP4::STSD&>(b).entryCount) mismatch(a, "entry count");
    }
    if (!a.hasChild()) return;
    const auto& kidsA = static_cast<const MP4::NestedBox&>(a).children;
    const auto& kidsB = static_cast<const MP4::NestedBox&>(b).children;
    if (kidsA.size() != kidsB.size()) mismatch(a, "child count");
    for (size_t i = 0; i < kidsA.size(); ++i) compare(*kidsA[i], *kidsB[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A uuid kind that holds boxes, a track among them, as the camera's is.
    static const bool holder = [] {
        MP4::registerBoxHolder({0x28, 0xf3, 0x11, 0xe2, 0xb7, 0x91, 0x4f, 0x6f, 0x94, 0xe2, 0x4f, 0x5d, 0xea, 0xcb, 0x3c, 0x01},
                               MP4::fourcc("KATR"));
        return true;
    }();
    (void)holder;
    fuzzsupport::silenceConsole();
    fuzzsupport::InputFile input(data, size);
    MP4::Container container;
    container.attach(input.wpath());
    container.dump([](const std::wstring&) {});
    container.find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [](MP4::BOX&) { return true; });
    if (container.root() == nullptr) return 0;

    const std::string written = writeTree(*container.root(), data, size);
    fuzzsupport::InputFile output(reinterpret_cast<const uint8_t*>(written.data()), written.size());
    MP4::Container again;
    again.attach(output.wpath());
    if (again.root() == nullptr) std::abort();
    compare(*container.root(), *again.root());
    const std::string rewritten =
        writeTree(*again.root(), reinterpret_cast<const uint8_t*>(written.data()), written.size());
    if (rewritten != written) {
        std::fprintf(stderr, "box tree round trip: writing the tree again changed its bytes\n");
        std::abort();
    }
    return 0;
}
