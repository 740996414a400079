// Trims the spatial audio of arbitrary movies. The first two bytes choose
// the time range, the rest is the file.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fuzz/fuzz_file.h"
#include "mp4/box.h"
#include "mp4/container.h"
#include "meta/spatial_block.h"
#include "meta/spatial_sound.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    if (size < 2) return 0;
    // Quarter seconds; 255 as the end means to the end.
    const double start = data[0] / 4.0;
    const double end = data[1] == 255 ? -1.0 : data[1] / 4.0;
    fuzzsupport::InputFile input(data + 2, size - 2);

    meta::knowSpatialBlock();
    meta::SpatialSound sound;
    MP4::Container container;
    container.attach(input.wpath());
    const bool ok = sound.attach(container, start, end);
    if (ok && sound.built) {
        const ByteArray& katr = sound.trimmedKATR;
        if (katr.size < 8 || MP4::readBE32(katr.data) != katr.size) std::abort();
        if (sound.endByte < sound.startByte || sound.chunkCount == 0) std::abort();
    }
    if (!sound.built && !sound.trimmedKATR.empty()) std::abort();

    if (container.root() != nullptr) sound.dumpWAV(container, L"/dev/null");
    return 0;
}
