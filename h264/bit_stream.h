#pragma once

#include <cstddef>
#include <cstdint>

#include "foundation/byte_array.h"

// Bit-level reading and writing for parameter sets. Failures are thrown as
// a pointer to a static narrow text; nothing is rolled back.
namespace H264 {

struct Bits {
    uint32_t value = 0;  // right-aligned, first bit read most significant
    int32_t count = 0;
};

// A byte queue with a bit cursor at each end: writes append to the back,
// reads consume from the front. One stream serves one direction.
class BitStream {
public:
    BitStream() = default;
    BitStream(const BitStream&) = delete;
    BitStream& operator=(const BitStream&) = delete;
    virtual ~BitStream() = default;

    void attach(const ByteArray& bytes);

    unsigned next_bit();
    Bits read_bits(int n);
    unsigned char read8();
    unsigned short read16n();
    void read_bytes(size_t n, ByteArray& out);
    // Whole bytes still queued for reading.
    size_t available() const { return static_cast<size_t>(buffer.size - head); }

    // The value is not masked: it must fit in n bits.
    void write_bits(unsigned value, int n);
    void write8(unsigned char v);
    void write16n(unsigned short v);
    void write_bytes(const ByteArray& bytes);
    void flush_bits();
    // Pads the last byte with zero bits and copies out everything queued.
    void bytes(ByteArray& out);

protected:
    void requireWhole(uint64_t count) const;

    ByteArray buffer;
    // Bytes before head have been read. Consuming by index rather than by
    // moving the rest keeps long inputs linear.
    uint64_t head = 0;
    uint64_t current = 0;
    int32_t bitCount = 0;
};

// Exp-Golomb codes on top of the bit stream. The signed mapping is this
// system's own: read and write are not inverse for odd code numbers.
class GolombBitStream : public BitStream {
public:
    static Bits encode(unsigned v);
    static long decode(const Bits& bits);

    unsigned read_golomb();
    int read_golombs();
    void write_golomb(unsigned v);
    void write_golombs(int v);
};

}  // namespace H264
