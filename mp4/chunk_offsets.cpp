// Box sizes and chunk offsets brought up to date after bytes have moved.
#include <algorithm>
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"
#include "mp4/sample_table_boxes.h"
#include "mp4/uuid_box.h"

namespace MP4 {

namespace {

constexpr uint64_t kTableBlock = 64 * 1024;

bool shifted(uint64_t value, int64_t delta, uint64_t limit, uint64_t& out) {
    if (delta >= 0) {
        if (__builtin_add_overflow(value, static_cast<uint64_t>(delta), &out)) return false;
    } else {
        const uint64_t cut = static_cast<uint64_t>(-(delta + 1)) + 1;
        if (cut > value) return false;
        out = value - cut;
    }
    return out <= limit;
}

// Maps every entry of one table through where (or, with write false, only
// checks that every entry is there and that its new value fits the entry
// width and the file).
bool mapTable(BinFile& file, const STCO& table, const Container::OffsetMap& where, bool write) {
    const uint64_t width = table.entryWidth();
    const uint64_t length = file.length();
    const uint64_t end = std::min(heldEnd(table), length);
    const uint64_t first = addClamped(table.start, table.headerSize() + 8);
    if (table.tableOffset < first || table.tableOffset > end) return false;
    if (table.entryCount > (end - table.tableOffset) / width) return false;
    const uint64_t limit = std::min(length, width == 4 ? uint64_t(0xFFFFFFFF) : ~uint64_t(0));
    const uint64_t total = uint64_t(table.entryCount) * width;

    std::vector<uint8_t> block;
    file.setLimit(BinFile::kNoLimit);
    for (uint64_t done = 0; done < total;) {
        const uint64_t n = std::min(kTableBlock, total - done);
        block.resize(static_cast<size_t>(n));
        file.seek(table.tableOffset + done);
        if (!file.readBytes(block.data(), n)) return false;
        for (uint64_t i = 0; i < n; i += width) {
            uint8_t* p = block.data() + i;
            const uint64_t value = width == 4 ? readBE32(p) : readBE64(p);
            uint64_t moved;
            if (!where(value, moved) || moved > limit) return false;
            for (uint64_t k = 0; k < width; ++k) p[k] = uint8_t(moved >> (8 * (width - 1 - k)));
        }
        if (write) {
            file.seek(table.tableOffset + done);
            if (!file.writeBytes(block.data(), n)) return false;
        }
        done += n;
    }
    return true;
}

}  // namespace

bool Container::modifyBoxSize(BinFile& file, const BOX& box, int64_t delta) {
    // The root stands for the whole file and has no size field of its own.
    // Every new size is checked before the first is written.
    std::vector<std::pair<const BOX*, uint64_t>> sizes;
    for (const BOX* b = &box; b != nullptr && b->parent != nullptr; b = b->parent) {
        uint64_t size;
        if (!shifted(b->size, delta, b->largeSize ? ~uint64_t(0) : 0xFFFFFFFFull, size) ||
            size < b->headerSize()) {
            return false;
        }
        sizes.emplace_back(b, size);
    }
    bool ok = true;
    for (const auto& [b, size] : sizes) ok = b->writeSize(file, size) && ok;
    return ok;
}

bool Container::mapChunkOffsets(BinFile& file, const char* stblPath, const OffsetMap& where, bool& found) {
    std::vector<const STCO*> tables;
    for (const char* leaf : {".stco", ".co64"}) {
        find(std::string(stblPath) + leaf, [&tables](BOX& box) {
            if (const auto* table = dynamic_cast<const STCO*>(&box)) tables.push_back(table);
            return true;
        });
    }
    found = found || !tables.empty();
    // Every table is checked before the first is written, so a bad one
    // leaves all of them as they were.
    for (const STCO* table : tables) {
        if (!mapTable(file, *table, where, false)) return false;
    }
    for (const STCO* table : tables) {
        if (!mapTable(file, *table, where, true)) return false;
    }
    return true;
}

bool Container::shiftChunkOffsets(BinFile& file, const char* stblPath, int64_t delta, bool& found) {
    return mapChunkOffsets(
        file, stblPath, [delta](uint64_t value, uint64_t& moved) { return shifted(value, delta, ~uint64_t(0), moved); },
        found);
}

bool Container::followChunks(BinFile& file, const OffsetMap& where) {
    bool found = false;
    return mapChunkOffsets(file, kTrackTables, where, found) && mapChunkOffsets(file, kSpatialTables, where, found) &&
           followFragmentIndex(file, where);
}

bool Container::modifySTCOIndex(BinFile& file, int64_t delta) {
    bool found = false;
    const bool ok = shiftChunkOffsets(file, kTrackTables, delta, found);
    return found && ok;
}

bool Container::modifySpatialTrakSTCOIndex(BinFile& file, int64_t delta) {
    bool found = false;
    const bool ok = shiftChunkOffsets(file, kSpatialTables, delta, found);
    return found && ok;
}

BOX* Container::spatialDataBlock() {
    if (!root_) return nullptr;
    for (auto& child : root_->children) {
        const auto* uuid = dynamic_cast<const UUID*>(child.get());
        if (uuid != nullptr && uuid->isKind(SpatialData::_UUID)) return child.get();
    }
    return nullptr;
}

}  // namespace MP4
