// Runs every container edit on arbitrary bytes taken as a movie, each on a
// fresh copy in a private directory, once with an output path and once in
// place. Whatever the bytes, a source with an output path keeps its bytes,
// and no temporary file outlives an edit.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "foundation/byte_array.h"
#include "fuzz/fuzz_file.h"
#include "fuzz/scratch_dir.h"
#include "geo/gps_info.h"
#include "meta/location_edits.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "meta/spatial_block.h"
#include "meta/spatial_sound.h"
#include "mp4/uuid_box.h"

namespace {

using fuzzsupport::checkAndEmpty;
using fuzzsupport::readAll;
using fuzzsupport::wide;
using fuzzsupport::writeAll;

// The source's block (whole, or cut to sound) appended to the batch.
void appendBlock(MP4::Container& c, const std::string& sourcePath, const meta::SpatialSound* sound) {
    MP4::Container source;
    if (!source.attach(wide(sourcePath))) return;
    auto file = std::make_shared<QVMX::FileIO>(wide(sourcePath), 'r');
    const meta::SpatialSound none;
    meta::BlockPlace place;
    MP4::BoxEdit block;
    if (c.plannedAppendOffset(place.start) && meta::spatialBlockEdit(source, file, sound ? *sound : none, place, block)) {
        (void)c.appendTopLevel(L"spatialData", std::move(block));
    }
}

const GPSInfo& position() {
    static const GPSInfo gps = [] {
        GPSInfo g;
        g.attachRXYZ("+35.5000+139.2500+012.000/");
        return g;
    }();
    return gps;
}

using Edit = std::function<void(MP4::Container&, const std::string& sourcePath)>;

const std::vector<Edit>& edits() {
    static const std::vector<Edit> all = {
        [](MP4::Container& c, const std::string&) { (void)c.moovFirst(); },
        [](MP4::Container& c, const std::string&) { (void)c.updateTimeStamp(0x123456789ull); },
        [](MP4::Container& c, const std::string&) {
            static const char udta[] = "\0\0\0\x14udta\0\0\0\x0c" "free1234";
            (void)c.replaceUdta(20, ByteArray(udta, 20));
        },
        [](MP4::Container& c, const std::string&) { (void)meta::appendXMP(c, "<x:xmpmeta/>"); },
        [](MP4::Container& c, const std::string&) { (void)meta::appendAxis(c, std::string(40, 'a')); },
        [](MP4::Container& c, const std::string&) { (void)meta::appendSphericalVideoXML(c, "<rdf:SphericalVideo/>"); },
        [](MP4::Container& c, const std::string& sourcePath) { appendBlock(c, sourcePath, nullptr); },
        [](MP4::Container& c, const std::string& sourcePath) {
            meta::SpatialSound sound;
            MP4::Container source;
            source.attach(wide(sourcePath));
            sound.attach(source, 0.01, 0.5);
            appendBlock(c, sourcePath, &sound);
        },
        [](MP4::Container& c, const std::string&) { (void)meta::appendLocations(c, position()); },
        [](MP4::Container& c, const std::string&) {
            (void)meta::appendLocationAndSphericalVideoXML(c, position(), "<rdf:SphericalVideo/>");
        },
        [](MP4::Container& c, const std::string&) { (void)meta::removeBadLOCI(c); },
        [](MP4::Container& c, const std::string&) { (void)meta::locateBlock(c); },
        [](MP4::Container& c, const std::string&) {
            (void)c.moovFirst();
            (void)meta::followLocator(c);
        },
    };
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    meta::knowSpatialBlock();
    fuzzsupport::silenceConsole();
    const std::string dir = fuzzsupport::scratchDirectory();
    const std::string movie = dir + "/movie.mp4";
    const std::string output = dir + "/out.mp4";
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (const Edit& edit : edits()) {
        for (bool withOutput : {true, false}) {
            writeAll(movie, bytes);
            // The spatial data is taken from a second copy, as from a source movie.
            writeAll(dir + "/spatial.mp4", bytes);
            {
                // Each edit is recorded and committed, into the output or
                // in place.
                MP4::Container c;
                c.attach(wide(movie));
                c.beginEdits();
                edit(c, dir + "/spatial.mp4");
                (void)c.commitEdits(withOutput ? wide(output) : std::wstring());
            }
            if (withOutput && readAll(movie) != bytes) std::abort();
            checkAndEmpty(dir);
        }
    }
    return 0;
}
