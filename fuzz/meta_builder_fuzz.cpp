// The metadata path on arbitrary bytes taken as a camera movie: the probe,
// the builder's reading, trimming and writing into an output, then a second
// pass writing that output into another. Whatever the bytes, the source keeps
// them and no temporary file is left.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_file.h"
#include "fuzz/scratch_dir.h"
#include "meta/meta_builder.h"
#include "meta/meta_probe.h"
#include "mp4/container.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzsupport;
    silenceConsole();
    const std::string dir = scratchDirectory();
    const std::string source = dir + "/source.mp4";
    const std::wstring output = wide(dir + "/out.mp4");
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    writeAll(source, bytes);

    MetaProbe probe;
    probe.probe(wide(source));

    // The last two bytes choose the kept frame range.
    const unsigned start = size >= 2 ? data[size - 2] : 0;
    const unsigned count = size >= 1 ? data[size - 1] : 0;
    {
        MetaBuilder builder("Tavrel.osx", "2.4.0.2018.01.10", false);
        builder.readMeta(wide(source), false);
        builder.trimStream(start, count);
        MP4::Container parsed;
        parsed.attach(wide(source));
        builder.readSpatialData(parsed, 0u, 1u);
        (void)builder.updateMeta(wide(source), output, std::nullopt);
    }
    if (readAll(source) != bytes) std::abort();
    {
        MetaBuilder builder("Tavrel.osx", "2.4.0.2018.01.10", false);
        builder.readMeta(wide(source), true);
        builder.trimStream(start, count);
        (void)builder.updateMeta(output, output + L".again.mp4", true);
    }
    if (readAll(source) != bytes) std::abort();
    checkAndEmpty(dir);
    return 0;
}
