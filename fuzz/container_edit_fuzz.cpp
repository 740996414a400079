// Runs every container edit on arbitrary bytes taken as a movie, each on a
// fresh copy in a private directory, once with an output path and once in
// place. Whatever the bytes, a source with an output path keeps its bytes,
// and no temporary file outlives an edit.
#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "foundation/byte_array.h"
#include "fuzz/fuzz_file.h"
#include "geo/gps_info.h"
#include "mp4/container.h"
#include "mp4/spatial_sound.h"
#include "mp4/uuid_box.h"

namespace {

// Memory-backed when there is such a place: every input writes files.
char workName[] = "/dev/shm/tavrel-edit-fuzz-XXXXXX";
char fallbackName[] = "/tmp/tavrel-edit-fuzz-XXXXXX";
char* workPath = workName;

void removeWorkDirectory() { ::rmdir(workPath); }

std::string workDirectory() {
    static const std::string dir = [] {
        if (::mkdtemp(workName) == nullptr) {
            workPath = fallbackName;
            if (::mkdtemp(fallbackName) == nullptr) std::abort();
        }
        std::atexit(removeWorkDirectory);
        return std::string(workPath);
    }();
    return dir;
}

void writeAll(const std::string& path, const uint8_t* data, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) std::abort();
    if (size > 0 && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);
}

std::string readAll(const std::string& path) {
    std::string out;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) out.append(buffer, n);
    std::fclose(f);
    return out;
}

// Removes everything in the directory; aborts if a temporary file was left.
void checkAndEmpty(const std::string& dir) {
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr) std::abort();
    while (const dirent* e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        if (name.size() >= 8 && name.compare(name.size() - 8, 8, ".tmp.mp4") == 0) std::abort();
        ::unlink((dir + "/" + name).c_str());
    }
    ::closedir(d);
}

std::wstring wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// Where the first spatial-data block of the movie is, or the whole file.
void spatialRange(MP4::Container& c, uint64_t& offset, uint64_t& size) {
    offset = 0;
    size = c.root() ? c.root()->size : 0;
    if (!c.root()) return;
    for (const auto& child : c.root()->children) {
        const auto* uuid = dynamic_cast<const MP4::UUID*>(child.get());
        if (uuid != nullptr && uuid->isKind(MP4::SpatialData::_UUID)) {
            offset = child->start;
            size = child->size;
            return;
        }
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
        [](MP4::Container& c, const std::string&) { c.moovFirst(); },
        [](MP4::Container& c, const std::string&) { c.updateTimeStamp(0x123456789ull); },
        [](MP4::Container& c, const std::string&) {
            static const char udta[] = "\0\0\0\x14udta\0\0\0\x0c" "free1234";
            c.replaceUdta(20, ByteArray(udta, 20));
        },
        [](MP4::Container& c, const std::string&) { c.appendXMP("<x:xmpmeta/>"); },
        [](MP4::Container& c, const std::string&) { c.appendAxis(std::string(40, 'a')); },
        [](MP4::Container& c, const std::string&) { c.appendSphericalVideoXML("<rdf:SphericalVideo/>"); },
        [](MP4::Container& c, const std::string& sourcePath) {
            uint64_t offset, size;
            spatialRange(c, offset, size);
            QVMX::FileIO source(wide(sourcePath), 'r');
            c.appendSpatialData(source, offset, size);
        },
        [](MP4::Container& c, const std::string& sourcePath) {
            uint64_t offset, size;
            spatialRange(c, offset, size);
            MP4::SpatialSound sound;
            sound.attach(wide(sourcePath), 0.01, 0.5);
            QVMX::FileIO source(wide(sourcePath), 'r');
            c.trimSpatialData(source, offset, sound);
        },
        [](MP4::Container& c, const std::string&) { c.appendLocations(position()); },
        [](MP4::Container& c, const std::string&) {
            c.appendLocationAndSphericalVideoXML(position(), "<rdf:SphericalVideo/>");
        },
        [](MP4::Container& c, const std::string&) { c.removeBadLOCI(); },
        [](MP4::Container& c, const std::string&) { c.overwriteSpatialDataOffset(64); },
        [](MP4::Container& c, const std::string&) {
            c.isMdatFirst();
            c.isSpatialDataExist();
        },
    };
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    const std::string dir = workDirectory();
    const std::string movie = dir + "/movie.mp4";
    const std::string output = dir + "/out.mp4";
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (const Edit& edit : edits()) {
        for (bool withOutput : {true, false}) {
            writeAll(movie, data, size);
            // The spatial data is taken from a second copy, as from a source movie.
            writeAll(dir + "/spatial.mp4", data, size);
            {
                MP4::Container c;
                c.attach(wide(movie));
                if (withOutput) c.setOutputPath(wide(output));
                edit(c, dir + "/spatial.mp4");
            }
            if (withOutput && readAll(movie) != bytes) std::abort();
            checkAndEmpty(dir);
        }
    }
    return 0;
}
