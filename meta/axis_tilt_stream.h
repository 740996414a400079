#pragma once

// The per-frame camera attitude and its AXIS payload. Version 2, all fields
// big-endian: a 32-byte header (version 2, tilt flag, record count, compass
// index, the compass frame's three angles in whole degrees and its stamp)
// and 16 bytes per frame (three angles in whole degrees, the stamp).
// Version 1 (16-byte header, 12-byte records) is accepted on input only.
#include <cstdint>
#include <vector>

#include "foundation/failure.h"

class AxisTiltStream {
public:
    // One frame; angles in radians.
    struct AxisCompass {
        float a0 = 0;
        float a1 = 0;
        float a2 = 0;
        uint32_t unused0 = 0;
        uint32_t stamp = 0;
        uint32_t unused1[3] = {};
    };

    struct AXIS_HEADER_V2 {
        static constexpr unsigned long kSize = 32;
        uint8_t bytes[kSize] = {};
        // With a negative index only the first 12 bytes are set.
        void init(bool flag, unsigned long count, int index, const AxisCompass& compass);
    };

    static constexpr unsigned long kHeaderV1 = 16;
    static constexpr unsigned long kRecordV1 = 12;
    static constexpr unsigned long kRecordV2 = 16;

    // A new[]-allocated payload of size bytes (the caller delete[]s it), or
    // null with size 0 for an empty stream.
    unsigned char* toBinary(unsigned long& size) const;

    // Keeps count records from record start on, in place (a version-1 payload
    // is converted first, which replaces data). Returns 32 + 16 x count,
    // computed from the requested count; 0 when there is nothing to keep (or
    // not even a header); a failure when the payload's length is not the one
    // its count calls for.
    static QVMX::Result<unsigned long> trimRecords(unsigned char*& data, unsigned long size, unsigned int start,
                                                   unsigned int count);
    // trimRecords with 0 for a failure too, whose cause goes out as a notice.
    static unsigned long trim(unsigned char*& data, unsigned long size, unsigned int start, unsigned int count);
    // A new[]-allocated version-2 payload for a version-1 payload (size
    // becomes its length), or why there is none.
    static QVMX::Result<unsigned char*> convert(const unsigned char* payload, unsigned long& size);

    std::vector<AxisCompass> frames;
    bool tiltFlag = false;
    // The frame whose angles go into the header; -1 and -2 are markers for
    // the top/bottom correction.
    int32_t compassIndex = -1;
};
