#pragma once

// The sample auxiliary information offsets (saio) of a track's sample
// table: absolute file positions of, for one, an encrypted track's
// initialisation vectors.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace MP4 {

// Where the offsets of one saio payload (after its box header) lie: count
// fields of width bytes (4 or 8) from byte first on; false when the table
// does not add up.
struct AuxInfoOffsets {
    size_t first = 0;
    uint64_t count = 0;
    size_t width = 4;

    uint64_t read(const std::vector<uint8_t>& payload, uint64_t i) const;
    void write(std::vector<uint8_t>& payload, uint64_t i, uint64_t value) const;
};
bool auxInfoOffsets(const std::vector<uint8_t>& payload, AuxInfoOffsets& out);

}  // namespace MP4
