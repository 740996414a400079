#pragma once

// Loads and stores of 16-, 32- and 64-bit fields in a chosen byte order,
// byte by byte, so they work on any alignment.
#include <cstdint>

namespace meta {

inline uint16_t load16(const uint8_t* p, bool bigEndian) {
    return bigEndian ? uint16_t(p[0] << 8 | p[1]) : uint16_t(p[1] << 8 | p[0]);
}

inline uint32_t load32(const uint8_t* p, bool bigEndian) {
    if (bigEndian) {
        return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
    }
    return uint32_t(p[3]) << 24 | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0];
}

inline uint64_t load64(const uint8_t* p, bool bigEndian) {
    const uint64_t first = load32(p, bigEndian);
    const uint64_t second = load32(p + 4, bigEndian);
    return bigEndian ? first << 32 | second : second << 32 | first;
}

inline void store16(uint8_t* p, uint16_t v, bool bigEndian) {
    if (bigEndian) {
        p[0] = uint8_t(v >> 8);
        p[1] = uint8_t(v);
    } else {
        p[0] = uint8_t(v);
        p[1] = uint8_t(v >> 8);
    }
}

inline void store32(uint8_t* p, uint32_t v, bool bigEndian) {
    if (bigEndian) {
        store16(p, uint16_t(v >> 16), true);
        store16(p + 2, uint16_t(v), true);
    } else {
        store16(p, uint16_t(v), false);
        store16(p + 2, uint16_t(v >> 16), false);
    }
}

}  // namespace meta
