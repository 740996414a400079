#include "mp4/avcc_box.h"

#include <vector>

namespace MP4 {

void AVCC::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    payload.clear();
    if (size <= 8) return;
    std::vector<uint8_t> bytes;
    file.readAvailable(bytes, size - 8);
    payload.append(bytes.data(), bytes.size());
}

void AVCC::dump() const { BOX::dump(); }

}  // namespace MP4
