// The newer cameras' user data carried from the source into the output, with
// the maker record brought up to date, a fresh thumbnail, and the sensor
// streams cut to the kept frames.
#include <algorithm>
#include <cstring>
#include <vector>

#include "foundation/notices.h"
#include "meta/accel_sensor_stream.h"
#include "meta/byte_order.h"
#include "meta/media_services.h"
#include "meta/meta_builder.h"
#include "mp4/container.h"

namespace {

constexpr uint64_t kSensorHeader = 8 + AccelSensorStreamEmbed::Header::kSize;

// A child box of the copied user data: where it lies in the copy.
struct CopiedBox {
    uint64_t offset = 0;
    uint64_t size = 0;
};

// The first direct child of udta with the given type and at least 9 bytes
// that lies wholly inside the copy.
bool findCopied(const MP4::BOX& udta, const char (&type)[5], uint64_t copyLength, CopiedBox& out) {
    if (!udta.hasChild()) return false;
    for (const auto& child : static_cast<const MP4::NestedBox&>(udta).children) {
        if (!child->isType(MP4::fourcc(type)) || child->size < 9 || child->largeSize) continue;
        const uint64_t offset = child->start - udta.start;
        if (offset > copyLength || child->size > copyLength - offset) continue;
        out = {offset, child->size};
        return true;
    }
    return false;
}

void patchMakerRecord(uint8_t* box, uint64_t size, int32_t topBottomCorrection, int32_t videoStabilization) {
    // The patchers are handed the whole box size, header included: they
    // stop at the entries they find, and the copy has slack behind its end.
    uint8_t* payload = box + 8;
    try {
        ExifParser::updateProjectionType(payload, size, ExifParser::PROJECTION_TYPE_EQUIRECTANGULAR);
    } catch (const char*) {
        QVMX::Notices::post(L"ProjectionType update failed.\n");
    }
    try {
        ExifParser::updateSphereAdjZenith(payload, size,
                                          static_cast<ExifParser::TOPBOTTOM_CORRECTION_TYPE>(topBottomCorrection));
    } catch (const char*) {
        QVMX::Notices::post(L"SphereAdjZenith update failed.\n");
    }
    try {
        ExifParser::updateVideoStabilization(payload, size,
                                             static_cast<ExifParser::VIDEO_STABILIZATION>(videoStabilization));
    } catch (const char*) {
        QVMX::Notices::post(L"VideoStabilization update failed.\n");
    }
}

// The maker thumbnail box keeps its size: the new JPEG stands at the start
// of its zeroed payload, or, when none fits, the box becomes free space.
void putThumbnail(uint8_t* box, uint64_t size, bool made, const ByteArray& jpeg) {
    if (made && jpeg.size <= size - 8) {
        std::copy(jpeg.data, jpeg.data + jpeg.size, box + 8);
    } else {
        std::memcpy(box + 4, "free", 4);
    }
}

// A thumbnail made beside the copy is put in by the copy itself (fill).
void replaceThumbnail(uint8_t* box, uint64_t size, const std::wstring& movie,
                      std::function<bool(ByteArray&)>& fill) {
    uint8_t* payload = box + 8;
    const uint64_t room = size - 8;
    std::fill(payload, payload + room, 0);
    if (const auto& later = mediaServices().deferThumbnail) {
        if (auto deferred = later(movie, kMakerThumbnailWidth, room); deferred && deferred->fill) {
            fill = deferred->fill;
            return;
        }
    }
    ByteArray jpeg;
    const auto& thumbnail = mediaServices().thumbnail;
    putThumbnail(box, size, thumbnail && thumbnail(movie, jpeg, kMakerThumbnailWidth, room), jpeg);
}

// Keeps count records from record first on; the box keeps its size and the
// rest of it reads zero.
void trimBox(uint8_t* box, uint64_t size, uint64_t recordSize, uint32_t first, uint32_t count) {
    const uint64_t used = kSensorHeader + recordSize * count;
    if (size <= used) return;
    const bool bigEndian = AccelSensorStreamEmbed::Header::decode(box + 8).bigEndian;
    meta::store32(box + 8, count, bigEndian);
    uint8_t* records = box + kSensorHeader;
    const uint64_t from = recordSize * first;
    const uint64_t area = size - kSensorHeader;
    // Records past the box's end are not there to move: they read zero.
    std::vector<uint8_t> kept(recordSize * count, 0);
    if (from < area) {
        std::copy(records + from, records + from + std::min<uint64_t>(kept.size(), area - from), kept.begin());
    }
    std::copy(kept.begin(), kept.end(), records);
    std::fill(records + kept.size(), box + size, 0);
}

}  // namespace

bool MetaBuilder::userDataCopy(MP4::Container& source, MP4::Container& output, ByteArray& out) {
    const MP4::BOX* udta = nullptr;
    source.find("moov.udta", [&udta](MP4::BOX& box) {
        udta = &box;
        return false;
    });
    if (udta == nullptr) return false;

    // Eight bytes of slack: the maker patchers may look that far past a box
    // that ends the user data.
    const uint64_t size = udta->size;
    std::vector<uint8_t> copy;
    bool read = false;
    source.open([&](QVMX::FileIO& file) {
        if (size > file.length() || udta->start > file.length() - size || !file.seek_set(udta->start)) return;
        copy.assign(size + 8, 0);
        uint64_t done = 0;
        while (done < size) {
            const uint64_t n = file.read(copy.data() + done, size - done);
            if (n == 0 || n == QVMX::FileIO::kError) break;
            done += n;
        }
        read = done == size;
    });
    if (!read) {
        QVMX::Notices::post(L"source movie read. but, unmatch size.\n");
        return false;
    }

    CopiedBox box;
    if (findCopied(*udta, "KMKN", size, box)) {
        patchMakerRecord(copy.data() + box.offset, box.size, topBottomCorrection, videoStabilization);
    }
    thumbnailFill = {};
    if (findCopied(*udta, "KTHU", size, box)) {
        std::function<bool(ByteArray&)> fill;
        replaceThumbnail(copy.data() + box.offset, box.size, output.path(), fill);
        // Its box is filled when the copy reaches it.
        if (fill) {
            thumbnailFill = [fill, at = box.offset, boxSize = box.size](ByteArray& bytes) {
                if (at + boxSize > bytes.size) return false;
                ByteArray jpeg;
                const bool made = fill(jpeg);
                putThumbnail(bytes.data + at, boxSize, made, jpeg);
                return true;
            };
        }
    }
    if (trimCount != 0) {
        if (findCopied(*udta, "KDTD", size, box)) {
            trimBox(copy.data() + box.offset, box.size, AccelSensorStreamEmbed::TopBottomCorrection::kSize,
                    trimStart, trimCount);
        }
        if (findCopied(*udta, "KDTC", size, box)) {
            trimBox(copy.data() + box.offset, box.size, AccelSensorStreamEmbed::Ecompass::kSize, trimStart,
                    trimCount);
        }
    }
    out = ByteArray(copy.data(), size);
    return true;
}
