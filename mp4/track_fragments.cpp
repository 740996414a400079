#include "mp4/track_fragments.h"

namespace MP4 {

bool payloadChildren(const std::vector<uint8_t>& payload, size_t from, size_t size, std::vector<PayloadChild>& out) {
    if (from > payload.size() || size > payload.size() - from) return false;
    const size_t end = from + size;
    for (size_t at = from; at < end;) {
        if (end - at < 8) return false;
        const uint32_t boxSize = readBE32(payload.data() + at);
        if (boxSize < 8 || boxSize > end - at) return false;
        out.push_back({{payload[at + 4], payload[at + 5], payload[at + 6], payload[at + 7]}, at + 8, boxSize - 8u});
        at += boxSize;
    }
    return true;
}

bool explicitBaseOffsets(const std::vector<uint8_t>& moofPayload, std::vector<size_t>& out) {
    std::vector<PayloadChild> parts;
    if (!payloadChildren(moofPayload, 0, moofPayload.size(), parts)) return false;
    for (const PayloadChild& traf : parts) {
        if (traf.type != fourcc("traf")) continue;
        std::vector<PayloadChild> boxes;
        if (!payloadChildren(moofPayload, traf.at, traf.size, boxes)) return false;
        for (const PayloadChild& b : boxes) {
            if (b.type != fourcc("tfhd")) continue;
            if (b.size < 8) return false;
            const uint32_t flags = readBE32(moofPayload.data() + b.at) & 0xFFFFFF;
            if (!(flags & kBaseDataOffsetPresent)) continue;
            // After version, flags and track id.
            if (b.size < 16) return false;
            out.push_back(b.at + 8);
        }
    }
    return true;
}

}  // namespace MP4
