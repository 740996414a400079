#include "mp4/user_data_boxes.h"

#include <algorithm>
#include <vector>

#include "foundation/wide_format.h"

namespace MP4 {

void XYZ::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    dataSize = file.read16();
    language = file.read16();
    const auto declared = static_cast<int32_t>(static_cast<uint32_t>(size - 12));
    if (declared <= 0) return;
    std::vector<uint8_t> bytes;
    file.readAvailable(bytes, std::min<uint32_t>(static_cast<uint32_t>(declared), kMaxText));
    text.assign(bytes.begin(), bytes.end());
}

void XYZ::dump(const DumpLine& out) const {
    std::wstring wide;
    for (char c : text) {
        if (c == '\0') break;
        wide.push_back(static_cast<wchar_t>(static_cast<uint8_t>(c)));
    }
    out(QVMX::format(L"MP4: %ls<%ls xyz=%ls %04x >\n", indent().c_str(), basicTag().c_str(),
                     wide.c_str(), static_cast<unsigned>(language)));
}

namespace {
double fixed16(uint32_t raw) { return static_cast<int32_t>(raw) * (1.0 / 65536); }
}  // namespace

void LOCI::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    file.skip(8);
    if (file.remaining() < 8) return;
    longitude = fixed16(file.read32());
    latitude = fixed16(file.read32());
    hasPosition = true;
    if (file.remaining() >= 4) {
        altitude = fixed16(file.read32());
        hasAltitude = true;
    }
}

void LOCI::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls loci=%f %f %f >\n", indent().c_str(), basicTag().c_str(),
                     longitude, latitude, altitude));
}

}  // namespace MP4
