#include "meta/box_payload.h"

#include <algorithm>

#include "foundation/file_io.h"
#include "mp4/box.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"

std::string readBoxPayload(MP4::Container& container, const MP4::BOX& box, uint64_t limit) {
    std::string out;
    container.open([&](QVMX::FileIO& file) {
        const uint64_t from = MP4::addClamped(box.start, box.headerSize());
        const uint64_t end = std::min({box.end(), file.length(), MP4::addClamped(from, limit)});
        if (end <= from || !file.seek_set(from)) return;
        out.resize(end - from);
        uint64_t done = 0;
        while (done < out.size()) {
            const uint64_t n = file.read(reinterpret_cast<uint8_t*>(out.data()) + done, out.size() - done);
            if (n == 0 || n == QVMX::FileIO::kError) break;
            done += n;
        }
        out.resize(done);
    });
    return out;
}

std::string textOf(const std::string& payload) { return payload.substr(0, payload.find('\0')); }

const MP4::TKHD* videoTrackHeader(MP4::Container& container) {
    MP4::BOX* track = container.videoTrack();
    if (track == nullptr || !track->hasChild()) return nullptr;
    for (const auto& child : static_cast<MP4::NestedBox&>(*track).children) {
        if (const auto* tkhd = dynamic_cast<const MP4::TKHD*>(child.get())) return tkhd;
    }
    return nullptr;
}
