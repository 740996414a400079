#pragma once

#include "foundation/byte_array.h"
#include "foundation/failure.h"
#include "mp4/box.h"

namespace H264 {
class AVCC;
class SPS;
}  // namespace H264

namespace MP4 {

// The H.264 decoder configuration box. Its payload (everything after the
// 8-byte header) is kept for the parameter-set model.
class AVCC : public BOX {
public:
    using BOX::BOX;
    // The header line; an unreadable record or SPS adds one line.
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    // The payload is one field: the whole record as stored.
    bool describe(Fields& f) override;
    // The whole box, 32-bit size, "avcC" and the payload; empty when the
    // payload is too large for that size.
    static ByteArray boxWith(const ByteArray& payload);

    // Reads the record and its first SPS; a failure names the step that
    // could not read it ("avcc.parse()", "avcc.sps_parse()") and why.
    QVMX::Status decode(H264::AVCC& record, H264::SPS& sps) const;

    ByteArray payload;
};

}  // namespace MP4
