#include "box_walk.h"

#include <set>
#include <sstream>

namespace e2e {

const std::string kSphericalXmlUuid("\xff\xcc\x82\x63\xf8\x55\x4a\x93\x88\x14\x58\x7a\x02\x52\x1f\xdd", 16);
const std::string kXmpUuid("\xbe\x7a\xcf\xcb\x97\xa9\x42\xe8\x9c\x71\x99\x94\x91\xe3\xaf\xac", 16);
const std::string kAxisUuid("\x8e\x4e\x1f\x97\x81\xf3\x4d\x59\x97\xb5\xff\x05\xa2\x7c\xdb\x7b", 16);
const std::string kSpatialDataUuid("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);

uint16_t readBE16(const std::string& bytes, uint64_t at) {
    if (at + 2 > bytes.size()) return 0;
    return static_cast<uint16_t>((uint8_t(bytes[at]) << 8) | uint8_t(bytes[at + 1]));
}

uint32_t readBE32(const std::string& bytes, uint64_t at) {
    return (uint32_t(readBE16(bytes, at)) << 16) | readBE16(bytes, at + 2);
}

uint64_t readBE64(const std::string& bytes, uint64_t at) {
    return (uint64_t(readBE32(bytes, at)) << 32) | readBE32(bytes, at + 4);
}

namespace {

const std::set<std::string> kContainers = {"moov", "trak", "mdia", "minf", "stbl", "udta",
                                           "edts", "dinf", "KATR"};

// The boxes between from and to; a header that does not fit ends the list.
std::vector<Box> walk(const std::string& file, uint64_t from, uint64_t to) {
    std::vector<Box> boxes;
    uint64_t at = from;
    while (at + 8 <= to) {
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
        if (box.type == "uuid") {
            box.header += 16;
            if (box.size < box.header) break;
            if (file.compare(box.start + box.header - 16, 16, kSpatialDataUuid) == 0) {
                box.children = walk(file, box.payloadStart(), box.start + box.size);
            }
        } else if (kContainers.count(box.type) != 0) {
            box.children = walk(file, box.payloadStart(), box.start + box.size);
        }
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

std::string uuidOf(const std::string& file, const Box& box) {
    return box.type == "uuid" ? file.substr(box.start + box.header - 16, 16) : std::string();
}

std::string payloadOf(const std::string& file, const Box& box) {
    return file.substr(box.payloadStart(), box.payloadSize());
}

}  // namespace e2e
