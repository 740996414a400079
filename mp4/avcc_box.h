#pragma once

#include "foundation/byte_array.h"
#include "mp4/box.h"

namespace MP4 {

// The H.264 decoder configuration box. Its payload (everything after the
// 8-byte header) is kept for the parameter-set model.
class AVCC : public BOX {
public:
    using BOX::BOX;
    void dump() const override;
    void parseBox(BinFile& file, uint64_t end) override;

    ByteArray payload;
};

}  // namespace MP4
