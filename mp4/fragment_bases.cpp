// Track fragments that place their samples at absolute file positions (a
// base data offset in their header, as some muxers write by default): the
// offsets follow the fragments' data when bytes before it move.
#include <vector>

#include "mp4/container.h"
#include "mp4/track_fragments.h"

namespace MP4 {

namespace {

// Movie fragments larger than this are not read into memory.
constexpr uint64_t kLargestFragmentHeader = 16u << 20;

}  // namespace

bool Container::followFragmentBases(BinFile& file, const OffsetMap& where) {
    if (!root_) return true;
    for (const auto& child : root_->children) {
        if (!child->isType(fourcc("moof"))) continue;
        std::vector<uint8_t> payload;
        if (!readPayload(file, *child, kLargestFragmentHeader, payload)) return false;
        const uint64_t header = child->headerSize();
        std::vector<size_t> bases;
        if (!explicitBaseOffsets(payload, bases)) return false;
        for (const size_t at : bases) {
            const uint64_t base = readBE64(payload.data() + at);
            uint64_t moved;
            if (!where(base, moved)) return false;
            if (moved == base) continue;
            file.seek(child->start + header + at);
            if (!file.write64(moved)) return false;
        }
    }
    return true;
}

}  // namespace MP4
