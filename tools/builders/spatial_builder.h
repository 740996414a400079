#pragma once

// A movie whose spatial-data uuid box holds a KADT audio block and the KATR
// track describing it, as the newest cameras write them.
#include <cstdint>
#include <string>

#include "tools/builders/box_builder.h"

namespace builders {

extern const std::string kSpatialDataUuid;

struct SpatialShape {
    uint32_t timeScale = 1000;
    uint32_t sampleSize = 8;  // 4 channels of 16-bit samples
    uint32_t samples = 4000;
    uint8_t mdhdVersion = 0;  // creation time 3600
    bool withMdhd = true;
    bool withStsz = true;
    int64_t storedBytes = -1;  // audio bytes really in KADT; all when negative
};

Bytes spatialAudio(uint64_t count);  // byte i of the spatial audio, for every i < count
// The track, chunks of 1536 samples from dataOffset on, and its pieces that
// a trim copies unchanged.
Bytes katrBox(const SpatialShape& shape, uint64_t dataOffset);
Bytes katrTkhd();
Bytes katrHdlr();
Bytes katrSmhd();
Bytes katrDinf();
Bytes katrStsd();
// ftyp (20 bytes), then the block; its KADT payload starts at byte 52.
Bytes spatialMovie(const SpatialShape& shape);

}  // namespace builders
