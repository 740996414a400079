// tavrel-edit OPERATION IN OUT [ARGUMENT]: one container edit from the
// command line, for benchmarks and whole-program tests. OUT names the result;
// the source is left as it was unless OUT is the source itself.
#include <clocale>
#include <cstdlib>
#include <string>

#include "foundation/byte_array.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/wchar.h"
#include "geo/gps_info.h"
#include "mp4/container.h"

namespace {

int usage() {
    QVMX::Console::out(
        L"usage: tavrel-edit OPERATION IN OUT [ARGUMENT]\n"
        L"  moovfirst IN OUT          movie box in front of the media data\n"
        L"  timestamp IN OUT TIME     creation time in every header\n"
        L"  udta IN OUT BOXFILE       replace the user data with the box in BOXFILE\n"
        L"  xmp IN OUT TEXTFILE       append the XMP packet in TEXTFILE\n"
        L"  axis IN OUT FILE          append an AXIS payload\n"
        L"  spherical IN OUT XMLFILE  put the Spherical Video XML into the video track\n"
        L"  fullrange IN OUT 0|1      colour range and constraint_set1 in the H.264 SPS\n"
        L"  location IN OUT ISO6709   add the location boxes the user data lacks\n");
    return 1;
}

bool readWhole(const std::wstring& path, std::string& out) {
    QVMX::FileIO file(path, 'r');
    if (!file.isOpen()) return false;
    out.assign(file.length(), '\0');
    uint64_t done = 0;
    while (done < out.size()) {
        const uint64_t got = file.read(reinterpret_cast<uint8_t*>(out.data()) + done, out.size() - done);
        if (got == QVMX::FileIO::kError || got == 0) return false;
        done += got;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    if (argc < 4) return usage();
    const std::string operation = argv[1];
    const std::wstring in = QVMX::wchar::mbs2wcs(argv[2]);
    const std::wstring out = QVMX::wchar::mbs2wcs(argv[3]);
    const bool needsArgument = operation != "moovfirst";
    if (needsArgument != (argc == 5)) return usage();

    std::string argument;
    const bool argumentIsFile =
        operation == "udta" || operation == "xmp" || operation == "axis" || operation == "spherical";
    if (argumentIsFile && !readWhole(QVMX::wchar::mbs2wcs(argv[4]), argument)) {
        QVMX::Console::out(L"tavrel-edit: cannot read %ls\n", QVMX::wchar::mbs2wcs(argv[4]).c_str());
        return 1;
    }
    MP4::Container container;
    if (!container.attach(in)) return 1;
    if (out != in) container.setOutputPath(out);

    bool ok;
    if (operation == "moovfirst") {
        ok = container.moovFirst();
    } else if (operation == "timestamp") {
        ok = container.updateTimeStamp(std::strtoull(argv[4], nullptr, 10));
    } else if (operation == "udta") {
        ok = container.replaceUdta(argument.size(), ByteArray(argument.data(), argument.size()));
    } else if (operation == "xmp") {
        ok = container.appendXMP(argument);
    } else if (operation == "axis") {
        ok = container.appendAxis(argument);
    } else if (operation == "spherical") {
        ok = container.appendSphericalVideoXML(argument);
    } else if (operation == "location") {
        GPSInfo gps;
        gps.attachRXYZ(argv[4]);
        ok = container.appendLocations(gps);
    } else if (operation == "fullrange") {
        ok = container.appendFullRangeAndConstrainedSet1Flag(std::string(argv[4]) == "1");
    } else {
        return usage();
    }
    if (!ok) {
        QVMX::Console::out(L"tavrel-edit: %ls failed.\n", QVMX::wchar::mbs2wcs(operation.c_str()).c_str());
    }
    return ok ? 0 : 1;
}
