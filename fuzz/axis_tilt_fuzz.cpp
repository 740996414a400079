// Trims and converts arbitrary AXIS payloads. The first 8 bytes are the
// start and count (big-endian), the rest the payload. A stream built from the
// same bytes is also written and trimmed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_file.h"
#include "meta/axis_tilt_stream.h"

namespace {

uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

void trimCopy(const uint8_t* payload, unsigned long size, unsigned start, unsigned count) {
    unsigned char* data = new unsigned char[size];  // exact, so overruns are caught
    if (size != 0) std::memcpy(data, payload, size);
    AxisTiltStream::trim(data, size, start, count);
    delete[] data;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    if (size < 8) return 0;
    const unsigned start = be32(data);
    const unsigned count = be32(data + 4);
    const uint8_t* payload = data + 8;
    const unsigned long length = size - 8;

    trimCopy(payload, length, start, count);

    unsigned char* exact = new unsigned char[length];
    if (length != 0) std::memcpy(exact, payload, length);
    unsigned long converted = length;
    const QVMX::Result<unsigned char*> v2 = AxisTiltStream::convert(exact, converted);
    if (v2) delete[] *v2;
    delete[] exact;

    // Frames from the payload's floats; the compass index from the count.
    AxisTiltStream stream;
    for (unsigned long at = 0; at + 12 <= length && stream.frames.size() < 64; at += 12) {
        AxisTiltStream::AxisCompass frame;
        std::memcpy(&frame.a0, payload + at, 4);
        std::memcpy(&frame.a1, payload + at + 4, 4);
        std::memcpy(&frame.a2, payload + at + 8, 4);
        frame.stamp = uint32_t(at);
        stream.frames.push_back(frame);
    }
    stream.tiltFlag = (count & 1) != 0;
    stream.compassIndex = stream.frames.empty() ? -1 : int32_t(count % (stream.frames.size() + 2)) - 2;
    unsigned long binarySize = 0;
    unsigned char* binary = stream.toBinary(binarySize);
    if (binary != nullptr) {
        const unsigned kept = std::min<unsigned>(count, unsigned(stream.frames.size()));
        const unsigned from = start % unsigned(stream.frames.size());
        const unsigned long result = AxisTiltStream::trim(binary, binarySize, from, std::min(kept, unsigned(stream.frames.size()) - from));
        // A well-formed payload trims unless nothing is kept.
        if (result == 0 && std::min(kept, unsigned(stream.frames.size()) - from) != 0) std::abort();
        delete[] binary;
    }
    return 0;
}
