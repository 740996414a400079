// Bit streams and Exp-Golomb codes.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "h264/bit_stream.h"

using H264::GolombBitStream;

namespace {

ByteArray bytes(std::initializer_list<uint8_t> b) { return ByteArray(std::data(b), b.size()); }

// A stream holding the given bit string ("0010..."), zero-padded to a byte.
void attachBits(GolombBitStream& s, std::string bits) {
    bits.resize((bits.size() + 7) / 8 * 8, '0');
    ByteArray b;
    for (size_t i = 0; i < bits.size(); i += 8) b.append8(uint8_t(std::stoul(bits.substr(i, 8), nullptr, 2)));
    s.attach(b);
}

// The first n bits a fresh stream holds after fn.
std::string written(const std::function<void(GolombBitStream&)>& fn, size_t n) {
    GolombBitStream s;
    fn(s);
    ByteArray out;
    s.bytes(out);
    std::string bits;
    for (uint64_t i = 0; i < out.size; ++i) {
        for (int b = 7; b >= 0; --b) bits += ((out.data[i] >> b) & 1) ? '1' : '0';
    }
    return bits.substr(0, n);
}

std::string thrown(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const char* message) {
        return message;
    }
    return "";
}

}  // namespace

TEST(BitStream, BitsAndBytesInOrderAndNoByteAccessMidByte) {
    GolombBitStream s;
    s.attach(bytes({0xA5, 0x12, 0x34, 0xFF, 0x80}));
    EXPECT_EQ(s.read_bits(8).value, 0xA5u);
    EXPECT_EQ(s.read16n(), 0x1234);
    EXPECT_EQ(s.read_bits(3).value, 7u);
    EXPECT_EQ(thrown([&] { s.read8(); }), "bits existed");
    EXPECT_EQ(s.read_bits(5).value, 0x1Fu);
    EXPECT_EQ(s.read8(), 0x80);
    EXPECT_EQ(thrown([&] { s.next_bit(); }), "no more data");

    GolombBitStream w;
    w.write_bits(0b101, 3);
    EXPECT_EQ(thrown([&] { w.write16n(1); }), "bits existed");
    w.flush_bits();
    w.write16n(0x1234);
    w.write_bits(0xDEADBEEF, 32);
    w.write_bytes(bytes({9}));
    ByteArray out;
    w.bytes(out);
    EXPECT_EQ(out, bytes({0xA0, 0x12, 0x34, 0xDE, 0xAD, 0xBE, 0xEF, 9}));
}

TEST(Golomb, CodesBothWaysUpToTheLongest) {
    const std::pair<std::string, unsigned> codes[] = {{"1", 0}, {"010", 1}, {"00111", 6}, {"0001000", 7}};
    for (const auto& [bits, value] : codes) {
        GolombBitStream s;
        attachBits(s, bits + "1");
        EXPECT_EQ(s.read_golomb(), value) << bits;
        EXPECT_EQ(s.next_bit(), 1u) << bits;  // nothing beyond the code was taken
        EXPECT_EQ(written([&](GolombBitStream& w) { w.write_golomb(value); }, bits.size()), bits);
    }
    GolombBitStream longest;  // 15 zeros: 65534
    attachBits(longest, std::string(15, '0') + std::string(16, '1'));
    EXPECT_EQ(longest.read_golomb(), 65534u);

    GolombBitStream tooLong, cut;
    attachBits(tooLong, std::string(16, '0') + "1" + std::string(15, '0'));
    EXPECT_EQ(thrown([&] { tooLong.read_golomb(); }), "too log golomb sream");
    attachBits(cut, "00000000");
    EXPECT_EQ(thrown([&] { cut.read_golomb(); }), "no more data");
    // Wider than 32 bits is still written whole.
    EXPECT_EQ(written([](GolombBitStream& w) { w.write_golomb(0xFFFFFFFFu); }, 65),
              std::string(32, '0') + "1" + std::string(32, '0'));
}
