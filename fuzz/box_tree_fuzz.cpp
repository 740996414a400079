// Parses and dumps arbitrary bytes as a movie.
#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_file.h"
#include "mp4/container.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    fuzzsupport::InputFile input(data, size);
    MP4::Container container;
    container.attach(input.wpath());
    container.dump();
    container.find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [](MP4::BOX&) { return true; });
    return 0;
}
