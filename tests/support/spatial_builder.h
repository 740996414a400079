#pragma once

// A movie whose spatial-data uuid box carries a KADT audio block and the
// KATR track that describes it, as the newest cameras write them.
#include <cstdint>
#include <string>

#include "support/box_builder.h"

namespace testsupport {

extern const std::string kSpatialDataUuid;

struct SpatialSpec {
    uint32_t timeScale = 1000;
    uint32_t sampleSize = 8;  // 4 channels of 16-bit samples
    uint32_t samples = 4000;
    uint8_t mdhdVersion = 0;
    uint64_t mdhdCreation = 3600;
    bool withMdhd = true;
    bool withStsz = true;
    // Audio bytes really stored in KADT; the whole track when negative.
    int64_t storedBytes = -1;
};

// Byte i of the spatial audio.
uint8_t spatialAudioByte(uint64_t i);
Bytes spatialAudio(uint64_t count);

// The track, with chunks of 1536 samples from dataOffset on.
Bytes katrBox(const SpatialSpec& spec, uint64_t dataOffset);
// Pieces of the track that are copied unchanged.
Bytes katrTkhd();
Bytes katrHdlr();
Bytes katrSmhd();
Bytes katrDinf();
Bytes katrStsd();

// ftyp, then the spatial-data block; kSpatialMovieDataOffset is where the
// KADT payload starts in it.
Bytes spatialMovie(const SpatialSpec& spec);
constexpr uint64_t kSpatialMovieDataOffset = 20 + 24 + 8;

}  // namespace testsupport
