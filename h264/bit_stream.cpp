#include "h264/bit_stream.h"

namespace H264 {

namespace {

constexpr const char* kNoMoreData = "no more data";
constexpr const char* kBitsExisted = "bits existed";
constexpr const char* kTooLong = "too log golomb sream";

// floor(log2(v)) for v >= 1, exact where a double logarithm could round.
int log2Floor(uint64_t v) { return 63 - __builtin_clzll(v); }

}  // namespace

void BitStream::attach(const ByteArray& bytes) {
    buffer = bytes;
    head = 0;
}

unsigned BitStream::next_bit() {
    if (bitCount == 0) {
        if (head >= buffer.size) throw kNoMoreData;
        current = buffer.data[head++];
        bitCount = 8;
    }
    --bitCount;
    return static_cast<unsigned>((current >> bitCount) & 1);
}

Bits BitStream::read_bits(int n) {
    Bits bits;
    bits.count = n;
    for (int i = 0; i < n; ++i) bits.value = (bits.value << 1) | next_bit();
    return bits;
}

void BitStream::requireWhole(uint64_t count) const {
    if (bitCount > 0) throw kBitsExisted;
    if (count > buffer.size - head) throw kNoMoreData;
}

unsigned char BitStream::read8() {
    requireWhole(1);
    return buffer.data[head++];
}

unsigned short BitStream::read16n() {
    requireWhole(2);
    const auto v = static_cast<unsigned short>((buffer.data[head] << 8) | buffer.data[head + 1]);
    head += 2;
    return v;
}

void BitStream::read_bytes(size_t n, ByteArray& out) {
    requireWhole(n);
    out.clear();
    out.append(buffer.data + head, n);
    head += n;
}

void BitStream::write_bits(unsigned value, int n) {
    if (n <= 0) return;
    current = (current << n) | value;
    bitCount += n;
    while (bitCount >= 8) {
        bitCount -= 8;
        buffer.append8(static_cast<uint8_t>(current >> bitCount));
        current &= (uint64_t(1) << bitCount) - 1;
    }
}

void BitStream::write8(unsigned char v) {
    if (bitCount > 0) throw kBitsExisted;
    buffer.append8(v);
}

void BitStream::write16n(unsigned short v) {
    if (bitCount > 0) throw kBitsExisted;
    buffer.append16be(v);
}

void BitStream::write_bytes(const ByteArray& bytes) {
    if (bitCount > 0) throw kBitsExisted;
    buffer.append(bytes.data, bytes.size);
}

void BitStream::flush_bits() {
    if (bitCount >= 1) write_bits(0, 8 - bitCount);
}

void BitStream::bytes(ByteArray& out) {
    flush_bits();
    out = ByteArray(buffer.data + head, buffer.size - head);
}

Bits GolombBitStream::encode(unsigned v) {
    const uint64_t coded = uint64_t(v) + 1;
    return {static_cast<uint32_t>(coded), 2 * log2Floor(coded) + 1};
}

long GolombBitStream::decode(const Bits& bits) {
    if (bits.value == 0) return -1;
    if (bits.count != 2 * log2Floor(bits.value) + 1) return -1;
    return static_cast<long>(bits.value) - 1;
}

unsigned GolombBitStream::read_golomb() {
    // A prefix of a longer code is all zeros or has fewer significant bits
    // than its count asks for, so decode only accepts the complete code.
    Bits bits = read_bits(1);
    long v = decode(bits);
    while (v < 0) {
        if (bits.count + 2 >= 33) throw kTooLong;
        bits.count += 2;
        bits.value = (bits.value << 2) | read_bits(2).value;
        v = decode(bits);
    }
    return static_cast<unsigned>(v);
}

int GolombBitStream::read_golombs() {
    const unsigned k = read_golomb();
    const int half = static_cast<int>(k / 2);
    return (k % 2 == 0) ? half : -half;
}

void GolombBitStream::write_golomb(unsigned v) {
    const uint64_t coded = uint64_t(v) + 1;
    const int zeros = log2Floor(coded);
    // Written in pieces: the code of a large value is longer than 32 bits.
    for (int left = zeros; left > 0; left -= 16) write_bits(0, left < 16 ? left : 16);
    for (int left = zeros + 1; left > 0;) {
        const int n = left < 16 ? left : 16;
        left -= n;
        write_bits(static_cast<unsigned>((coded >> left) & ((1u << n) - 1)), n);
    }
}

void GolombBitStream::write_golombs(int v) {
    const int64_t twice = int64_t(v) * 2;
    write_golomb(static_cast<unsigned>(v >= 0 ? twice : ~twice));
}

}  // namespace H264
