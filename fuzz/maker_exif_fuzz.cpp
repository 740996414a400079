// Reads arbitrary bytes as a "KMKN" payload and as a JPEG file, and runs the
// three patchers over them. A patcher may change at most the one entry it
// found: the changed bytes must lie within 12 consecutive bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "meta/exif_parser.h"

namespace {

void read(const uint8_t* data, size_t size, bool whole) {
    ExifParser parser;
    ExifParser::PANOX record;
    try {
        if (whole) {
            parser.attachBytes(data, size);
        } else {
            parser.attachKMKN(data, size);
        }
        parser.readPNAOX(record);
    } catch (const char*) {
    }
}

template <typename Patch>
void patch(const uint8_t* data, size_t size, size_t span, Patch fn) {
    std::vector<unsigned char> copy(data, data + size);  // exact size: overruns are caught
    try {
        fn(copy.data(), copy.size());
    } catch (const char*) {
    }
    size_t first = size, last = 0;
    for (size_t i = 0; i < size; ++i) {
        if (copy[i] != data[i]) {
            if (first == size) first = i;
            last = i;
        }
    }
    if (first != size && last - first >= span) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    read(data, size, false);
    read(data, size, true);
    patch(data, size, 4, [](unsigned char* d, unsigned long n) {
        ExifParser::updateProjectionType(d, n, ExifParser::PROJECTION_TYPE_EQUIRECTANGULAR);
    });
    patch(data, size, 4, [](unsigned char* d, unsigned long n) {
        ExifParser::updateSphereAdjZenith(d, n, ExifParser::TOPBOTTOM_CORRECTION_OFF);
    });
    patch(data, size, 4, [](unsigned char* d, unsigned long n) {
        ExifParser::updateSphereAdjZenith(d, n, ExifParser::TOPBOTTOM_CORRECTION_NOT_PRESENT);
    });
    patch(data, size, 12, [](unsigned char* d, unsigned long n) {
        ExifParser::updateVideoStabilization(d, n, ExifParser::VIDEO_STABILIZATION(3));
    });
    return 0;
}
