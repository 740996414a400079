// Picture sizes read from parameter sets: real libx264 records (their sizes
// are the encodes' own), and HEVC sets written bit by bit here.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "h264/picture_size.h"
#include "support/test_files.h"

using H264::PictureSize;

namespace {

std::string record(const std::string& name) {
    return testsupport::readFile(std::string(TAVREL_SOURCE_DIR) + "/tests/h264/data/" + name + ".bin");
}

std::optional<PictureSize> avcSize(const std::string& bytes) {
    return H264::avcConfigPictureSize(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// Writes an RBSP bit by bit and escapes it as a NAL unit.
class Bits {
public:
    Bits& put(uint64_t value, int n) {
        for (int i = n - 1; i >= 0; --i) bits_.push_back(((value >> i) & 1) != 0);
        return *this;
    }
    Bits& ue(uint64_t v) {
        int length = 0;
        while ((v + 1) >> (length + 1) != 0) ++length;
        return put(0, length).put(v + 1, length + 1);
    }
    std::string nal() const {
        std::vector<uint8_t> rbsp((bits_.size() + 8) / 8, 0);
        for (size_t i = 0; i < bits_.size(); ++i) rbsp[i / 8] |= uint8_t(bits_[i] ? 0x80 >> (i % 8) : 0);
        rbsp[bits_.size() / 8] |= uint8_t(0x80 >> (bits_.size() % 8));  // stop bit
        std::string out;
        int zeros = 0;
        for (uint8_t b : rbsp) {
            if (zeros >= 2 && b <= 3) {
                out += '\x03';
                zeros = 0;
            }
            zeros = b == 0 ? zeros + 1 : 0;
            out += char(b);
        }
        return out;
    }

private:
    std::vector<bool> bits_;
};

struct Window {
    uint32_t left = 0, right = 0, top = 0, bottom = 0;
};

// An HEVC SPS up to its conformance window; sub-layers with their profile
// and level fields present make the skipping count.
std::string hevcSps(uint32_t width, uint32_t height, uint32_t chroma, const Window* window, int subLayers = 0) {
    Bits b;
    b.put(0, 1).put(33, 6).put(0, 6).put(1, 3);      // NAL header
    b.put(0, 4).put(subLayers, 3).put(1, 1);         // VPS id, sub-layers, nesting
    b.put(0x01, 8).put(0x60000000, 32).put(0, 48).put(93, 8);  // general profile, tier, level
    for (int i = 0; i < subLayers; ++i) b.put(1, 1).put(1, 1);
    if (subLayers > 0) b.put(0, 2 * (8 - subLayers));
    for (int i = 0; i < subLayers; ++i) b.put(0xFFFFFFFF, 32).put(0xFFFFFFFF, 32).put(0xFFFFFF, 24).put(0xFF, 8);
    b.ue(0).ue(chroma);
    if (chroma == 3) b.put(0, 1);
    b.ue(width).ue(height);
    b.put(window != nullptr ? 1 : 0, 1);
    if (window != nullptr) b.ue(window->left).ue(window->right).ue(window->top).ue(window->bottom);
    // Zero-valued fields that follow, so the escaping has zeros to escape.
    b.put(0, 24);
    return b.nal();
}

std::optional<PictureSize> hevcSize(const std::string& nal) {
    return H264::hevcPictureSize(reinterpret_cast<const uint8_t*>(nal.data()), nal.size());
}

// An hvcC with a VPS array before the SPS array.
std::string hvcC(const std::string& sps) {
    std::string out(22, '\0');
    out[0] = 1;
    out += char(2);
    const std::string vps = "\x40\x01\x0c\x01";
    out += char(0x20) + std::string("\x00\x01", 2) + char(0) + char(vps.size()) + vps;
    out += char(0x21) + std::string("\x00\x01", 2) + char(sps.size() >> 8) + char(sps.size() & 0xFF) + sps;
    return out;
}

void expectSize(const std::optional<PictureSize>& size, uint32_t width, uint32_t height) {
    ASSERT_TRUE(size.has_value());
    EXPECT_EQ(size->width, width);
    EXPECT_EQ(size->height, height);
}

TEST(AvcPictureSize, EncodesOfEveryProfileGiveTheirSize) {
    // Cropping to 100x60, field pairs, 4:4:4 with scaling matrices, 10 bits.
    const struct {
        const char* name;
        uint32_t width, height;
    } cases[] = {{"baseline_512x256", 512, 256}, {"baseline_64x32", 64, 32}, {"main_crop", 100, 60},
                 {"high_bframes", 128, 64},      {"high_sar_hrd", 128, 64},  {"high_interlaced", 128, 64},
                 {"high444_cqm", 64, 64},        {"high444_lossless", 64, 64}, {"high10", 64, 64}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        expectSize(avcSize(record(c.name)), c.width, c.height);
    }
}

TEST(AvcPictureSize, DamagedRecordsGiveNothing) {
    const std::string good = record("main_crop");
    for (size_t cut : {size_t(0), size_t(5), size_t(8), size_t(12), good.size() / 2}) {
        EXPECT_FALSE(avcSize(good.substr(0, cut)).has_value()) << cut;
    }
    std::string noSps = good;
    noSps[5] = char(0xE0);
    EXPECT_FALSE(avcSize(noSps).has_value());
    std::string notSps = good;
    notSps[8] = char(0x68);  // a PPS header
    EXPECT_FALSE(avcSize(notSps).has_value());
}

TEST(HevcPictureSize, ConformanceWindowInChromaUnits) {
    const Window crop{1, 2, 0, 1};
    expectSize(hevcSize(hevcSps(1920, 1088, 1, &crop)), 1920 - 6, 1088 - 2);  // 4:2:0
    expectSize(hevcSize(hevcSps(1920, 1088, 2, &crop)), 1920 - 6, 1088 - 1);  // 4:2:2
    expectSize(hevcSize(hevcSps(1920, 1088, 3, &crop)), 1920 - 3, 1088 - 1);  // 4:4:4
    expectSize(hevcSize(hevcSps(1280, 720, 1, nullptr, 3)), 1280, 720);
    // A window that leaves nothing is ignored.
    const Window all{960, 0, 0, 0};
    expectSize(hevcSize(hevcSps(1920, 1080, 1, &all)), 1920, 1080);
}

TEST(HevcPictureSize, EscapedBytesAreDroppedBeforeReading) {
    // Zero-sized fields make runs of zero bytes that the NAL unit escapes.
    const std::string sps = hevcSps(0x100, 0x40, 1, nullptr);
    ASSERT_NE(sps.find(std::string("\x00\x00\x03", 3)), std::string::npos);
    expectSize(hevcSize(sps), 0x100, 0x40);
}

TEST(HevcPictureSize, RecordsAndDamage) {
    const Window crop{0, 1, 0, 4};
    const std::string sps = hevcSps(1920, 1088, 1, &crop, 1);
    const std::string whole = hvcC(sps);
    expectSize(H264::hevcConfigPictureSize(reinterpret_cast<const uint8_t*>(whole.data()), whole.size()), 1918, 1080);
    for (size_t cut = 0; cut + 4 < whole.size(); cut += 7) {
        const auto size = H264::hevcConfigPictureSize(reinterpret_cast<const uint8_t*>(whole.data()), cut);
        EXPECT_FALSE(size.has_value()) << cut;
    }
    EXPECT_FALSE(hevcSize(sps.substr(0, 20)).has_value());
    EXPECT_FALSE(hevcSize(hevcSps(1920, 1080, 1, nullptr, 7)).has_value());  // eight sub-layers
    EXPECT_FALSE(hevcSize(hevcSps(0, 1080, 1, nullptr)).has_value());
}

}  // namespace
