// Bit streams and Exp-Golomb codes.
#include <gtest/gtest.h>

#include <string>

#include "h264/bit_stream.h"

using H264::BitStream;
using H264::GolombBitStream;

namespace {

ByteArray bytes(std::initializer_list<uint8_t> b) { return ByteArray(std::data(b), b.size()); }

// A stream holding the given bit string ("0010...").
void attachBits(GolombBitStream& s, const std::string& bits) {
    ByteArray b;
    uint8_t byte = 0;
    size_t i = 0;
    for (; i < bits.size(); ++i) {
        byte = static_cast<uint8_t>((byte << 1) | (bits[i] == '1'));
        if (i % 8 == 7) {
            b.append8(byte);
            byte = 0;
        }
    }
    if (i % 8 != 0) b.append8(static_cast<uint8_t>(byte << (8 - i % 8)));
    s.attach(b);
}

// What a fresh stream holds after fn, as a bit string up to its last bit.
template <typename Fn>
std::string written(Fn fn, int bitsWritten) {
    GolombBitStream s;
    fn(s);
    ByteArray out;
    s.bytes(out);
    std::string bits;
    for (uint64_t i = 0; i < out.size; ++i) {
        for (int b = 7; b >= 0; --b) bits.push_back(((out.data[i] >> b) & 1) ? '1' : '0');
    }
    return bits.substr(0, static_cast<size_t>(bitsWritten));
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

TEST(BitStream, ReadsBitsAndBytesInOrderAndRefusesBytesMidByte) {
    GolombBitStream s;
    s.attach(bytes({0xA5, 0x12, 0x34, 0xFF, 0x80}));
    std::string bits;
    for (int i = 0; i < 8; ++i) bits += char('0' + s.next_bit());
    EXPECT_EQ(bits, "10100101");
    EXPECT_EQ(s.read16n(), 0x1234);
    const auto three = s.read_bits(3);
    EXPECT_EQ(three.value, 7u);
    EXPECT_EQ(three.count, 3);
    EXPECT_EQ(thrown([&] { s.read8(); }), "bits existed");
    EXPECT_EQ(s.read_bits(5).value, 0x1Fu);
    EXPECT_EQ(s.read8(), 0x80);
    EXPECT_EQ(thrown([&] { s.next_bit(); }), "no more data");
    GolombBitStream shortStream;
    shortStream.attach(bytes({1, 2}));
    ByteArray out;
    EXPECT_EQ(thrown([&] { shortStream.read_bytes(3, out); }), "no more data");
}

TEST(BitStream, WritesBitsThenBytesAndPadsWithZeros) {
    GolombBitStream s;
    s.write_bits(0b101, 3);
    EXPECT_EQ(thrown([&] { s.write8(1); }), "bits existed");
    EXPECT_EQ(thrown([&] { s.write16n(1); }), "bits existed");
    s.flush_bits();
    s.write16n(0x1234);
    s.write_bits(0xDEADBEEF, 32);
    s.write_bytes(bytes({9}));
    ByteArray out;
    s.bytes(out);
    EXPECT_EQ(out, bytes({0xA0, 0x12, 0x34, 0xDE, 0xAD, 0xBE, 0xEF, 9}));
}

TEST(Golomb, UnsignedCodesBothWays) {
    const std::pair<std::string, unsigned> codes[] = {
        {"1", 0}, {"010", 1}, {"011", 2}, {"00100", 3}, {"00111", 6}, {"0001000", 7}};
    for (const auto& [bits, value] : codes) {
        GolombBitStream s;
        attachBits(s, bits + "1");
        EXPECT_EQ(s.read_golomb(), value) << bits;
        EXPECT_EQ(s.next_bit(), 1u) << bits;  // nothing beyond the code was taken
        EXPECT_EQ(written([&](GolombBitStream& w) { w.write_golomb(value); }, int(bits.size())), bits);
    }
    // The longest code: 15 zeros, giving 65534.
    GolombBitStream longest;
    attachBits(longest, std::string(15, '0') + std::string(16, '1'));
    EXPECT_EQ(longest.read_golomb(), 65534u);
    EXPECT_EQ(H264::GolombBitStream::encode(65534).count, 31);
    EXPECT_EQ(H264::GolombBitStream::decode({0b00100, 5}), 3);
    EXPECT_EQ(H264::GolombBitStream::decode({0b00100, 3}), -1);
    EXPECT_EQ(H264::GolombBitStream::decode({0, 7}), -1);
}

TEST(Golomb, OverlongAndCutCodesThrowAndHugeValuesStillWriteWhole) {
    GolombBitStream tooLong;
    attachBits(tooLong, std::string(16, '0') + "1" + std::string(15, '0'));
    EXPECT_EQ(thrown([&] { tooLong.read_golomb(); }), "too log golomb sream");
    GolombBitStream cut;
    attachBits(cut, "00000000");
    EXPECT_EQ(thrown([&] { cut.read_golomb(); }), "no more data");
    // Longer than 32 bits: 32 zeros, a one and 32 zero bits.
    EXPECT_EQ(written([](GolombBitStream& w) { w.write_golomb(0xFFFFFFFFu); }, 65),
              std::string(32, '0') + "1" + std::string(32, '0'));
}

TEST(Golomb, SignedMappingIsNotInverseForOddCodes) {
    // Read: code numbers 0..5 give 0, 0, 1, -1, 2, -2.
    const std::pair<std::string, int> reads[] = {{"1", 0},      {"010", 0},   {"011", 1},
                                                 {"00100", -1}, {"00101", 2}, {"00110", -2}};
    for (const auto& [bits, value] : reads) {
        GolombBitStream s;
        attachBits(s, bits);
        EXPECT_EQ(s.read_golombs(), value) << bits;
    }
    // Write: 0, -1, 1, -2, 2 as code numbers 0..4.
    const std::pair<int, std::string> writes[] = {
        {0, "1"}, {-1, "010"}, {1, "011"}, {-2, "00100"}, {2, "00101"}};
    for (const auto& [value, bits] : writes) {
        EXPECT_EQ(written([&](GolombBitStream& w) { w.write_golombs(value); }, int(bits.size())), bits)
            << value;
    }
}
