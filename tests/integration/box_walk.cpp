#include "box_walk.h"

#include <set>
#include <sstream>

namespace e2e {

const std::string kSphericalXmlUuid("\xff\xcc\x82\x63\xf8\x55\x4a\x93\x88\x14\x58\x7a\x02\x52\x1f\xdd", 16);
const std::string kXmpUuid("\xbe\x7a\xcf\xcb\x97\xa9\x42\xe8\x9c\x71\x99\x94\x91\xe3\xaf\xac", 16);
const std::string kAxisUuid("\x8e\x4e\x1f\x97\x81\xf3\x4d\x59\x97\xb5\xff\x05\xa2\x7c\xdb\x7b", 16);
const std::string kSpatialDataUuid("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);

uint32_t readBE32(const std::string& bytes, uint64_t at) {
    uint32_t v = 0;
    for (uint64_t i = at; i < at + 4; ++i) v = (v << 8) | (i < bytes.size() ? uint8_t(bytes[i]) : 0);
    return v;
}

uint64_t readBE64(const std::string& bytes, uint64_t at) {
    return (uint64_t(readBE32(bytes, at)) << 32) | readBE32(bytes, at + 4);
}

namespace {

const std::set<std::string> kContainers = {"moov", "trak", "mdia", "minf", "stbl", "udta", "edts", "dinf", "KATR"};

// The boxes between from and to; a header that does not fit ends the list.
std::vector<Box> walk(const std::string& file, uint64_t from, uint64_t to) {
    std::vector<Box> boxes;
    for (uint64_t at = from; at + 8 <= to;) {
        Box box;
        box.start = at;
        box.size = readBE32(file, at);
        box.type = file.substr(at + 4, 4);
        if (box.size == 1) {
            if (at + 16 > to) break;
            box.size = readBE64(file, at + 8);
            box.header = 16;
        } else if (box.size == 0) {
            box.size = to - at;
        }
        if (box.size < box.header || box.size > to - at) break;
        if (box.type == "uuid") box.header += 16;
        if (box.size < box.header) break;
        const bool spatial = box.type == "uuid" && file.compare(box.payloadStart() - 16, 16, kSpatialDataUuid) == 0;
        if (spatial || kContainers.count(box.type) != 0) box.children = walk(file, box.payloadStart(), at + box.size);
        at += box.size;
        boxes.push_back(std::move(box));
    }
    return boxes;
}

void collect(const std::vector<Box>& boxes, const std::vector<std::string>& path, size_t depth,
             std::vector<const Box*>& out) {
    for (const auto& box : boxes) {
        if (box.type != path[depth]) continue;
        if (depth + 1 == path.size()) {
            out.push_back(&box);
        } else {
            collect(box.children, path, depth + 1, out);
        }
    }
}

const Box* first(const std::vector<Box>& top, const std::string& path) {
    const auto found = findBoxes(top, path);
    return found.empty() ? nullptr : found.front();
}

}  // namespace

std::vector<Box> walkBoxes(const std::string& file) { return walk(file, 0, file.size()); }

std::vector<const Box*> findBoxes(const std::vector<Box>& top, const std::string& path) {
    std::vector<std::string> parts;
    std::istringstream in(path);
    for (std::string part; std::getline(in, part, '.');) parts.push_back(part);
    std::vector<const Box*> out;
    if (!parts.empty()) collect(top, parts, 0, out);
    return out;
}

std::vector<const Box*> uuidBoxes(const std::string& file, const std::vector<Box>& top, const std::string& path,
                                  const std::string& id) {
    std::vector<const Box*> out;
    for (const Box* box : findBoxes(top, path)) {
        if (box->type == "uuid" && file.compare(box->payloadStart() - 16, 16, id) == 0) out.push_back(box);
    }
    return out;
}

std::string payloadOf(const std::string& file, const Box& box) { return file.substr(box.payloadStart(), box.payloadSize()); }

std::string sphericalXml(const std::string& file, const std::vector<Box>& top) {
    // The video track: the first one.
    const auto tracks = findBoxes(top, "moov.trak");
    for (const Box& child : tracks.empty() ? std::vector<Box>{} : tracks.front()->children) {
        if (child.type == "uuid" && file.compare(child.payloadStart() - 16, 16, kSphericalXmlUuid) == 0) {
            return payloadOf(file, child);
        }
    }
    return "";
}

SpatialBlock readSpatialBlock(const std::string& file, const std::vector<Box>& top) {
    SpatialBlock block;
    const auto uuid = uuidBoxes(file, top, "uuid", kSpatialDataUuid);
    if (uuid.empty()) return block;
    block = {true, uuid[0]->start, uuid[0]->size};
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
    if (const Box* stsz = first(top, "uuid.KATR.mdia.minf.stbl.stsz")) block.sampleCount = readBE32(file, stsz->payloadStart() + 8);
    if (const Box* mdhd = first(top, "uuid.KATR.mdia.mdhd")) {
        const uint64_t at = mdhd->payloadStart();
        block.mediaDuration = file[at] == 1 ? readBE64(file, at + 24) : readBE32(file, at + 16);
    }
    const Box* kdt9 = first(top, "moov.udta.KDT9");
    if (kdt9 != nullptr && kdt9->payloadSize() >= 16) {
        block.kdt9 = {readBE64(file, kdt9->payloadStart()), readBE64(file, kdt9->payloadStart() + 8)};
    }
    return block;
}

SensorBox readSensorBox(const std::string& file, const std::vector<Box>& top, const std::string& type) {
    // The header: count, value, reserved, byte-order mark, padding.
    constexpr uint64_t kHeader = 16;
    SensorBox sensor;
    const Box* box = first(top, "moov.udta." + type);
    if (box == nullptr || box->payloadSize() < kHeader) return sensor;
    const uint64_t at = box->payloadStart();
    const uint32_t stored = readBE32(file, at);
    sensor.found = true;
    sensor.count = file.compare(at + 8, 2, "\x10\x32") == 0 ? stored : __builtin_bswap32(stored);
    sensor.size = box->size;
    sensor.records = file.substr(at + kHeader, box->payloadSize() - kHeader);
    return sensor;
}

}  // namespace e2e
