// Strips application segments from arbitrary bytes and checks that only a
// run of whole segments right after the start marker went away.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "video/thumbnailer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ByteArray jpeg(data, size);
    const size_t length = Thumbnailer::removeAPPX(jpeg);
    if (length != jpeg.size || length > size) std::abort();
    if (size <= 1) {
        if (length != 0) std::abort();
        return 0;
    }
    // What is left is the input's first two bytes and then its tail.
    if (std::memcmp(jpeg.data, data, 2) != 0) std::abort();
    if (std::memcmp(jpeg.data + 2, data + (size - length) + 2, length - 2) != 0) std::abort();
    if (length != size && (data[0] != 0xFF || data[1] != 0xD8)) std::abort();
    return 0;
}
