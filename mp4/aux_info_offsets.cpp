// Sample auxiliary information (the initialisation vectors of an encrypted
// track, for one) is found through saio tables. In a track's sample table
// they hold absolute file positions, so they follow the bytes they point
// at when bytes before them move; in a track fragment they count from the
// fragment's base and move with it.
#include <algorithm>
#include <functional>
#include <vector>

#include "mp4/aux_info_offsets.h"
#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

namespace {

// Tables larger than this are not rewritten in memory.
constexpr uint64_t kLargestTable = 16u << 20;

// Maps the offsets of one saio payload in place; false when the table does
// not add up or an offset has no place in the new file.
bool mapOffsets(std::vector<uint8_t>& payload, const Container::OffsetMap& where) {
    AuxInfoOffsets table;
    if (!auxInfoOffsets(payload, table)) return false;
    const uint64_t limit = table.width == 4 ? 0xFFFFFFFFull : ~uint64_t(0);
    for (uint64_t i = 0; i < table.count; ++i) {
        uint64_t moved;
        if (!where(table.read(payload, i), moved) || moved > limit) return false;
        table.write(payload, i, moved);
    }
    return true;
}

}  // namespace

uint64_t AuxInfoOffsets::read(const std::vector<uint8_t>& payload, uint64_t i) const {
    const uint8_t* at = payload.data() + first + i * width;
    return width == 4 ? readBE32(at) : readBE64(at);
}

void AuxInfoOffsets::write(std::vector<uint8_t>& payload, uint64_t i, uint64_t value) const {
    uint8_t* at = payload.data() + first + i * width;
    for (size_t k = 0; k < width; ++k) at[k] = uint8_t(value >> (8 * (width - 1 - k)));
}

bool auxInfoOffsets(const std::vector<uint8_t>& payload, AuxInfoOffsets& out) {
    if (payload.size() < 8) return false;
    const uint32_t flags = readBE32(payload.data()) & 0xFFFFFF;
    // Version and flags, then the aux-info type and its parameter when flagged.
    const size_t countAt = 4 + ((flags & 1) ? 8 : 0);
    if (payload.size() < countAt + 4) return false;
    out.first = countAt + 4;
    out.count = readBE32(payload.data() + countAt);
    out.width = payload[0] == 0 ? 4 : 8;
    return out.count <= (payload.size() - out.first) / out.width;
}

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
    for (const BOX* table : tables) {
        // A table an edit wrote holds the new file's offsets already.
        if (std::any_of(settled.begin(), settled.end(),
                        [table](const ByteRange& r) { return r.from <= table->start && table->start < r.to; })) {
            continue;
        }
        std::vector<uint8_t> payload;
        if (heldEnd(*table) < table->end() || !readPayload(file, *table, kLargestTable, payload)) return false;
        const uint64_t header = table->headerSize();
        const std::vector<uint8_t> before = payload;
        if (!mapOffsets(payload, where)) return false;
        if (payload == before) continue;
        file.seek(table->start + header);
        if (!file.writeBytes(payload.data(), payload.size())) return false;
    }
    return true;
}

}  // namespace MP4
