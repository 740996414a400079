#include "video/range_expand.h"

#include <algorithm>
#include <cstddef>

namespace QVMX {

// Fixed point in 16 bits so the loops vectorise: 298/256 ~ 255/219 for
// luma, 291/256 ~ 255/224 for chroma around its centre.
uint8_t expandLuma(uint8_t y) {
    const uint16_t t = static_cast<uint16_t>(std::clamp<uint8_t>(y, 16, 235) - 16);
    return static_cast<uint8_t>((t * 298 + 128) >> 8);
}

uint8_t expandChroma(uint8_t c) {
    const int16_t d = static_cast<int16_t>(std::clamp<uint8_t>(c, 16, 240) - 128);
    return static_cast<uint8_t>(128 + ((d * 291 + 128) >> 8));
}

namespace {

void lumaRow(const uint8_t* __restrict in, uint8_t* __restrict out, int width) {
    for (int x = 0; x < width; ++x) out[x] = expandLuma(in[x]);
}

void chromaRow(const uint8_t* __restrict u, const uint8_t* __restrict v, uint8_t* __restrict out, int width) {
    for (int x = 0; x < width; ++x) {
        out[2 * x] = expandChroma(u[x]);
        out[2 * x + 1] = expandChroma(v[x]);
    }
}

}  // namespace

void expandToFullRangeNV12(const uint8_t* const source[3], const int sourceStride[3], uint8_t* const target[2],
                           const int targetStride[2], int width, int height) {
    for (int y = 0; y < height; ++y) {
        lumaRow(source[0] + static_cast<ptrdiff_t>(y) * sourceStride[0],
                target[0] + static_cast<ptrdiff_t>(y) * targetStride[0], width);
    }
    const int chromaWidth = (width + 1) / 2, chromaHeight = (height + 1) / 2;
    for (int y = 0; y < chromaHeight; ++y) {
        chromaRow(source[1] + static_cast<ptrdiff_t>(y) * sourceStride[1],
                  source[2] + static_cast<ptrdiff_t>(y) * sourceStride[2],
                  target[1] + static_cast<ptrdiff_t>(y) * targetStride[1], chromaWidth);
    }
}

}  // namespace QVMX
