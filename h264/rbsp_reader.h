#pragma once

#include <cstddef>
#include <cstdint>

namespace H264 {

// Reads the payload bits of one NAL unit, dropping its emulation-prevention
// bytes on the way. Reading past the end gives zero bits and marks the
// reader failed, so a parser reads on and checks once where it needs the
// values.
class RbspReader {
public:
    RbspReader(const uint8_t* nal, size_t size) : data_(nal), size_(size) {}

    // n is at most 32.
    uint32_t bits(int n);
    bool flag() { return bits(1) != 0; }
    void skip(int n);
    // Exp-Golomb codes; one longer than 32 bits fails the reader.
    uint32_t ue();
    int32_t se();

    bool failed() const { return failed_; }

private:
    bool nextByte();

    const uint8_t* data_;
    size_t size_;
    size_t position_ = 0;
    int zeros_ = 0;  // zero bytes just taken, for spotting 00 00 03
    uint32_t current_ = 0;
    int left_ = 0;  // bits of current_ not read yet
    bool failed_ = false;
};

}  // namespace H264
