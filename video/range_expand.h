#pragma once

#include <cstdint>

namespace QVMX {

// Video-range planar 4:2:0 to full-range NV12 of the same size, in one
// pass: the costliest conversion of a re-encode, so it gets its own loop
// rather than the scaler's general path.
void expandToFullRangeNV12(const uint8_t* const source[3], const int sourceStride[3], uint8_t* const target[2],
                           const int targetStride[2], int width, int height);

// The value mappings, one sample at a time (luma 16..235 and chroma 16..240
// to 0..255, values outside clipped).
uint8_t expandLuma(uint8_t y);
uint8_t expandChroma(uint8_t c);

}  // namespace QVMX
