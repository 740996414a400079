// The movie fragment random access box (mfra): its tfra tables locate
// fragments by absolute file position, so they follow the fragments when
// bytes before them move; and it must stay the last box of the file, where
// readers look for it through its trailing mfro.
#include <algorithm>
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

namespace {

// Larger random-access indexes than this are not rewritten in memory.
constexpr uint64_t kLargestIndex = 64ull << 20;

uint64_t readField(const uint8_t* p, size_t width) {
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i) v = (v << 8) | p[i];
    return v;
}

void writeField(uint8_t* p, size_t width, uint64_t v) {
    for (size_t i = 0; i < width; ++i) p[i] = uint8_t(v >> (8 * (width - 1 - i)));
}

// Maps the moof offsets of one tfra payload (after its 8-byte header) in
// place; false when the table does not add up or an offset has no place.
bool mapTfra(uint8_t* p, size_t size, const Container::OffsetMap& where) {
    if (size < 16) return false;
    const uint8_t version = p[0];
    const uint32_t sizes = static_cast<uint32_t>(readField(p + 8, 4));
    const uint64_t count = readField(p + 12, 4);
    const size_t field = version == 1 ? 8 : 4;
    const size_t numbers = ((sizes >> 4) & 3) + ((sizes >> 2) & 3) + (sizes & 3) + 3;
    const size_t entry = 2 * field + numbers;
    if (count > (size - 16) / entry) return false;
    const uint64_t limit = field == 4 ? 0xFFFFFFFFull : ~uint64_t(0);
    for (uint64_t i = 0; i < count; ++i) {
        uint8_t* offset = p + 16 + i * entry + field;
        uint64_t moved;
        if (!where(readField(offset, field), moved) || moved > limit) return false;
        writeField(offset, field, moved);
    }
    return true;
}

}  // namespace

bool Container::followFragmentIndex(BinFile& file, const OffsetMap& where) {
    if (!root_) return true;
    for (const auto& child : root_->children) {
        if (!child->isType(fourcc("mfra")) || child->largeSize) continue;
        std::vector<uint8_t> bytes;
        if (!readPayload(file, *child, kLargestIndex, bytes)) return false;
        // Each tfra is mapped in the copy; the payload is written back whole.
        for (size_t at = 0; at + 8 <= bytes.size();) {
            const uint64_t size = readField(bytes.data() + at, 4);
            if (size < 8 || size > bytes.size() - at) return false;
            if (std::equal(bytes.begin() + long(at + 4), bytes.begin() + long(at + 8), "tfra") &&
                !mapTfra(bytes.data() + at + 8, static_cast<size_t>(size - 8), where)) {
                return false;
            }
            at += static_cast<size_t>(size);
        }
        file.seek(child->start + child->headerSize());
        if (!file.writeBytes(bytes.data(), bytes.size())) return false;
    }
    return true;
}

const BOX* Container::trailingIndex() const {
    if (!root_ || root_->children.empty()) return nullptr;
    const BOX* last = root_->children.back().get();
    return last->isType(fourcc("mfra")) && last->size <= kLargestIndex ? last : nullptr;
}

}  // namespace MP4
