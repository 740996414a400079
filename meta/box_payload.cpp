#include "meta/box_payload.h"

#include <algorithm>

#include "foundation/file_io.h"
#include "mp4/box.h"
#include "mp4/container.h"

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
