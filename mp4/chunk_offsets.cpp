// Box sizes and chunk offsets brought up to date after bytes have moved.
#include <algorithm>
#include <functional>
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"
#include "mp4/sample_table_boxes.h"

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
        bool changed = false;
        for (uint64_t i = 0; i < n; i += width) {
            uint8_t* p = block.data() + i;
            const uint64_t value = width == 4 ? readBE32(p) : readBE64(p);
            uint64_t moved;
            if (!where(value, moved) || moved > limit) return false;
            changed = changed || moved != value;
            for (uint64_t k = 0; k < width; ++k) p[k] = uint8_t(moved >> (8 * (width - 1 - k)));
        }
        // Chunks that stay where they were need no write.
        if (write && changed) {
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

std::vector<const STCO*> Container::chunkTables() {
    std::vector<const STCO*> tables;
    // Wherever a track lies: in the movie box or in a uuid box that holds one.
    std::function<void(const BOX&)> visit = [&](const BOX& box) {
        if (const auto* table = dynamic_cast<const STCO*>(&box)) tables.push_back(table);
        if (const auto* nested = dynamic_cast<const NestedBox*>(&box)) {
            for (const auto& child : nested->children) visit(*child);
        }
    };
    if (root_) visit(*root_);
    return tables;
}

bool Container::mapChunkOffsets(BinFile& file, const std::vector<const STCO*>& tables, const OffsetMap& where) {
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

bool Container::followChunks(BinFile& file, const OffsetMap& where, const std::vector<ByteRange>& settled) {
    std::vector<const STCO*> tables = chunkTables();
    // A table an edit wrote holds the new file's offsets already.
    std::erase_if(tables, [&settled](const STCO* table) {
        return std::any_of(settled.begin(), settled.end(),
                           [table](const ByteRange& r) { return r.from <= table->start && table->start < r.to; });
    });
    return mapChunkOffsets(file, tables, where) && followFragmentIndex(file, where) &&
           followFragmentBases(file, where) && followAuxInfoOffsets(file, where, settled);
}

}  // namespace MP4
