#pragma once

// The colour-range and constraint_set1 flags of an avcC record's first SPS:
// read, and written back into a new record. The record is the avcC box's
// payload (everything after its 8-byte header).
#include <string>

#include "foundation/byte_array.h"
#include "foundation/failure.h"
#include "h264/parameter_sets.h"

namespace H264 {

struct RangeFlags {
    unsigned profileIdc = 0;
    bool fullRange = false;
    bool constrainedSet1 = false;
};

// The record and its first SPS. The failure's where is the step that failed
// ("avcc.parse()", "avcc.sps_parse()") and its cause the decoder's message.
QVMX::Status decodeRecord(const ByteArray& payload, AVCC& record, SPS& sps);

QVMX::Result<RangeFlags> rangeFlags(const ByteArray& payload);

// The record with its SPS declaring the range and constraint_set1; flags
// says what the source record declared.
QVMX::Result<ByteArray> withRange(const ByteArray& payload, bool fullRange, RangeFlags& flags);

}  // namespace H264
