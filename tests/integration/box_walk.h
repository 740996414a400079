#pragma once

// A small box reader of its own for the whole-program tests, written from
// the file format alone, so that what tavrel writes is not judged by the
// parser that wrote it.
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

// The 16-byte identifier of a uuid box.
std::string uuidOf(const std::string& file, const Box& box);
// The payload of a box (after the uuid identifier for a uuid box).
std::string payloadOf(const std::string& file, const Box& box);

uint16_t readBE16(const std::string& bytes, uint64_t at);
uint32_t readBE32(const std::string& bytes, uint64_t at);
uint64_t readBE64(const std::string& bytes, uint64_t at);

// The identifiers tavrel's uuid boxes carry.
extern const std::string kSphericalXmlUuid;
extern const std::string kXmpUuid;
extern const std::string kAxisUuid;
extern const std::string kSpatialDataUuid;

}  // namespace e2e
