// Sample auxiliary information (the initialisation vectors of an encrypted
// track, for one) is found through saio tables. In a track's sample table
// they hold absolute file positions, so they follow the bytes they point
// at when bytes before them move; in a track fragment they count from the
// fragment's base and move with it.
#include <algorithm>
#include <functional>
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

namespace {

// Tables larger than this are not rewritten in memory.
constexpr uint64_t kLargestTable = 16u << 20;

// Maps the offsets of one saio payload in place; false when the table does
// not add up or an offset has no place in the new file.
bool mapOffsets(std::vector<uint8_t>& p, const Container::OffsetMap& where) {
    if (p.size() < 8) return false;
    const uint8_t version = p[0];
    const uint32_t flags = readBE32(p.data()) & 0xFFFFFF;
    // Version and flags, then the aux-info type and its parameter when flagged.
    const size_t countAt = 4 + ((flags & 1) ? 8 : 0);
    if (p.size() < countAt + 4) return false;
    const uint64_t count = readBE32(p.data() + countAt);
    const size_t width = version == 0 ? 4 : 8;
    if (count > (p.size() - countAt - 4) / width) return false;
    const uint64_t limit = width == 4 ? 0xFFFFFFFFull : ~uint64_t(0);
    for (uint64_t i = 0; i < count; ++i) {
        uint8_t* at = p.data() + countAt + 4 + i * width;
        const uint64_t offset = width == 4 ? readBE32(at) : readBE64(at);
        uint64_t moved;
        if (!where(offset, moved) || moved > limit) return false;
        for (size_t k = 0; k < width; ++k) at[k] = uint8_t(moved >> (8 * (width - 1 - k)));
    }
    return true;
}

}  // namespace

bool Container::followAuxInfoOffsets(BinFile& file, const OffsetMap& where,
                                     const std::vector<ByteRange>& settled) {
    if (!root_) return true;
    std::vector<const BOX*> tables;
    std::function<void(const BOX&)> visit = [&](const BOX& box) {
        if (box.isType(fourcc("saio")) && box.parent != nullptr && box.parent->isType(fourcc("stbl"))) {
            tables.push_back(&box);
        }
        if (const auto* nested = dynamic_cast<const NestedBox*>(&box)) {
            for (const auto& child : nested->children) visit(*child);
        }
    };
    visit(*root_);
    file.setLimit(BinFile::kNoLimit);
    for (const BOX* table : tables) {
        // A table an edit wrote holds the new file's offsets already.
        if (std::any_of(settled.begin(), settled.end(),
                        [table](const ByteRange& r) { return r.from <= table->start && table->start < r.to; })) {
            continue;
        }
        const uint64_t header = table->headerSize();
        if (table->size < header || table->size - header > kLargestTable || heldEnd(*table) < table->end()) {
            return false;
        }
        std::vector<uint8_t> payload(static_cast<size_t>(table->size - header));
        file.seek(table->start + header);
        if (!file.readBytes(payload.data(), payload.size())) return false;
        const std::vector<uint8_t> before = payload;
        if (!mapOffsets(payload, where)) return false;
        if (payload == before) continue;
        file.seek(table->start + header);
        if (!file.writeBytes(payload.data(), payload.size())) return false;
    }
    return true;
}

}  // namespace MP4
