#include "camera_boxes.h"

namespace e2e {

namespace {

constexpr uint64_t kSensorHeader = 16;  // count, value, reserved, byte-order mark, padding

const Box* first(const std::vector<Box>& top, const std::string& path) {
    const auto found = findBoxes(top, path);
    return found.empty() ? nullptr : found.front();
}

}  // namespace

SpatialBlock readSpatialBlock(const std::string& file, const std::vector<Box>& top) {
    SpatialBlock block;
    for (const Box* uuid : findBoxes(top, "uuid")) {
        if (uuidOf(file, *uuid) != kSpatialDataUuid) continue;
        block.found = true;
        block.start = uuid->start;
        block.size = uuid->size;
        break;
    }
    if (!block.found) return block;
    if (const Box* kadt = first(top, "uuid.KADT")) {
        block.audioStart = kadt->payloadStart();
        block.audio = payloadOf(file, *kadt);
    }
    if (const Box* co64 = first(top, "uuid.KATR.mdia.minf.stbl.co64")) {
        const uint64_t count = readBE32(file, co64->payloadStart() + 4);
        for (uint64_t i = 0; i < count && 16 + 8 * i + 8 <= co64->size; ++i) {
            block.chunkOffsets.push_back(readBE64(file, co64->payloadStart() + 8 + 8 * i));
        }
    }
    if (const Box* stsz = first(top, "uuid.KATR.mdia.minf.stbl.stsz")) {
        block.sampleSize = readBE32(file, stsz->payloadStart() + 4);
        block.sampleCount = readBE32(file, stsz->payloadStart() + 8);
    }
    if (const Box* mdhd = first(top, "uuid.KATR.mdia.mdhd")) {
        const uint64_t at = mdhd->payloadStart();
        block.mediaDuration = file[at] == 1 ? readBE64(file, at + 4 + 20) : readBE32(file, at + 4 + 12);
    }
    return block;
}

std::pair<uint64_t, uint64_t> kdt9Locator(const std::string& file, const std::vector<Box>& top) {
    const Box* kdt9 = first(top, "moov.udta.KDT9");
    if (kdt9 == nullptr || kdt9->payloadSize() < 16) return {0, 0};
    return {readBE64(file, kdt9->payloadStart()), readBE64(file, kdt9->payloadStart() + 8)};
}

SensorBox readSensorBox(const std::string& file, const std::vector<Box>& top, const std::string& type) {
    SensorBox sensor;
    const Box* box = first(top, "moov.udta." + type);
    if (box == nullptr || box->payloadSize() < kSensorHeader) return sensor;
    const uint64_t at = box->payloadStart();
    const bool bigEndian = file.compare(at + 8, 2, "\x10\x32") == 0;
    const uint32_t stored = readBE32(file, at);
    sensor.found = true;
    sensor.count = bigEndian ? stored : __builtin_bswap32(stored);
    sensor.size = box->size;
    sensor.records = file.substr(at + kSensorHeader, box->payloadSize() - kSensorHeader);
    return sensor;
}

}  // namespace e2e
