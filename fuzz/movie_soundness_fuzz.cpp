// Judges arbitrary bytes as a movie to be rewritten: every sample table and
// every movie fragment is read, nothing may be read past or believed.
#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_file.h"
#include "mp4/movie_soundness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    fuzzsupport::InputFile input(data, size);
    (void)MP4::soundnessProblem(input.wpath());
    return 0;
}
