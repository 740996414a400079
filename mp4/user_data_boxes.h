#pragma once

#include <string>

#include "mp4/box.h"

// Location boxes of the user data.
namespace MP4 {

// The 0xA9 "xyz" box: an ISO 6709 location text.
class XYZ : public BOX {
public:
    static constexpr uint32_t kMaxText = 512;
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;

    uint16_t dataSize = 0;
    uint16_t language = 0;
    std::string text;
};

// The 3GPP location box.
class LOCI : public BOX {
public:
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;

    double longitude = 0;
    double latitude = 0;
    double altitude = 0;
    bool hasPosition = false;
    bool hasAltitude = false;
};

}  // namespace MP4
