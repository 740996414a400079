#pragma once

// A small box reader of its own for the whole-program tests, written from
// the file format alone, so that what tavrel writes is not judged by the
// parser that wrote it; and the newest cameras' boxes read through it.
#include <cstdint>
#include <string>
#include <vector>

namespace e2e {

struct Box {
    std::string type;    // the four type bytes
    uint64_t start = 0;  // file offset of the header
    uint64_t size = 0;   // header included
    uint64_t header = 8; // 8, 16 with a large size, 24 for a uuid box
    std::vector<Box> children;

    uint64_t payloadStart() const { return start + header; }
    uint64_t payloadSize() const { return size - header; }
};

// The top-level boxes of a file and, below them, the children of every
// box the format nests (the movie, track and sample-table boxes, the user
// data, and the spatial-data block with its track).
std::vector<Box> walkBoxes(const std::string& file);
// Every box at a dotted path such as "moov.trak.uuid", in file order.
std::vector<const Box*> findBoxes(const std::vector<Box>& top, const std::string& path);
// The boxes at a path that are uuid boxes with the given identifier.
std::vector<const Box*> uuidBoxes(const std::string& file, const std::vector<Box>& top, const std::string& path,
                                  const std::string& id);
// The payload of a box (after the identifier for a uuid box).
std::string payloadOf(const std::string& file, const Box& box);
// The spherical XML of the first track; empty when absent.
std::string sphericalXml(const std::string& file, const std::vector<Box>& top);

uint32_t readBE32(const std::string& bytes, uint64_t at);

// The identifiers tavrel's uuid boxes carry.
extern const std::string kSphericalXmlUuid;
extern const std::string kXmpUuid;
extern const std::string kAxisUuid;
extern const std::string kSpatialDataUuid;

struct SpatialBlock {
    bool found = false;
    uint64_t start = 0, size = 0;        // of the top-level uuid box
    uint64_t audioStart = 0;             // of the KADT payload
    std::string audio;                   // the KADT payload
    std::vector<uint64_t> chunkOffsets;  // KATR's co64
    uint32_t sampleCount = 0;            // KATR's stsz
    uint64_t mediaDuration = 0;          // KATR's mdhd
    std::pair<uint64_t, uint64_t> kdt9;  // where KDT9 says the block is, and its size
};
SpatialBlock readSpatialBlock(const std::string& file, const std::vector<Box>& top);

// A sensor box of the user data: the record count of its header (in the
// byte order its mark names) and the bytes of its records.
struct SensorBox {
    bool found = false;
    uint32_t count = 0;
    uint64_t size = 0;
    std::string records;
};
SensorBox readSensorBox(const std::string& file, const std::vector<Box>& top, const std::string& type);

}  // namespace e2e
