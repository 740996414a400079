#pragma once

// The newest cameras' boxes as the whole-program tests read them back:
// the spatial-data block with its audio track, the KDT9 locator and the
// sensor boxes, through the tests' own box reader.
#include <cstdint>
#include <string>
#include <vector>

#include "box_walk.h"

namespace e2e {

struct SpatialBlock {
    bool found = false;
    uint64_t start = 0;           // of the top-level uuid box
    uint64_t size = 0;
    uint64_t audioStart = 0;      // of the KADT payload
    std::string audio;            // the KADT payload
    std::vector<uint64_t> chunkOffsets;  // KATR's co64
    uint32_t sampleSize = 0;      // KATR's stsz
    uint32_t sampleCount = 0;
    uint64_t mediaDuration = 0;   // KATR's mdhd
};

SpatialBlock readSpatialBlock(const std::string& file, const std::vector<Box>& top);

// The two numbers after the KDT9 header: where the spatial data starts and
// its size; {0, 0} without a KDT9 box.
std::pair<uint64_t, uint64_t> kdt9Locator(const std::string& file, const std::vector<Box>& top);

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
