// tavrel-edit OPERATION IN OUT [ARGUMENT]: one container edit from the
// command line, for benchmarks and whole-program tests. OUT names the result;
// the source is left as it was unless OUT is the source itself. The result
// is written beside OUT under a hidden name and takes OUT's name at the end,
// so OUT is either the whole result or what stood there before.
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "foundation/byte_array.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/notices.h"
#include "foundation/pending_output.h"
#include "foundation/wchar.h"
#include "geo/gps_info.h"
#include "meta/spatial_block.h"
#include "meta/location_edits.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "meta/full_range_edit.h"
#include "tools/refusal.h"

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


// Room kept for what an edit adds to a copy of the source.
constexpr unsigned long long kEditRoom = 4ull << 20;

// "the OPERATION edit failed", and why.
std::string editFailure(const std::string& operation, const QVMX::Status& status) {
    return "the " + operation + " edit failed: " + QVMX::wchar::wcs2mbs(status.failure().cause).c_str();
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    QVMX::Notices::install(QVMX::Notices::toConsole());
    QVMX::PendingOutput::installInterruptHandler();
    // A camera's spatial block is read with its track.
    meta::knowSpatialBlock();
    if (argc < 4) return usage();
    const std::string operation = argv[1];
    const std::wstring in = QVMX::wchar::mbs2wcs(argv[2]);
    const bool known = operation == "moovfirst" || operation == "timestamp" || operation == "udta" ||
                       operation == "xmp" || operation == "axis" || operation == "spherical" ||
                       operation == "location" || operation == "fullrange";
    if (!known) return usage();
    const bool needsArgument = operation != "moovfirst";
    if (needsArgument != (argc == 5)) return usage();

    std::string argument;
    const bool argumentIsFile =
        operation == "udta" || operation == "xmp" || operation == "axis" || operation == "spherical";
    if (argumentIsFile && !readWhole(QVMX::wchar::mbs2wcs(argv[4]), argument)) {
        QVMX::Console::out(L"tavrel-edit: cannot read %ls\n", QVMX::wchar::mbs2wcs(argv[4]).c_str());
        return 1;
    }
    const std::string output = argv[3];
    MP4::Container container;
    if (!container.attach(in)) return 1;
    if (const std::string problem = QVMX::outputPathProblem(output); !problem.empty()) {
        return refuseOutput(output, problem);
    }
    std::error_code error;
    const auto sourceBytes = std::filesystem::file_size(argv[2], error);
    const unsigned long long needed = error ? 0 : sourceBytes + kEditRoom;
    if (const std::string room = QVMX::roomProblem(output, needed); !room.empty()) {
        return refuseOutput(output, room);
    }
    QVMX::PendingOutput pending(output);
    if (!pending.isOpen()) return refuseOutput(output, pending.cause());
    // Even an edit of the source itself goes through a copy, which replaces
    // the source only once it is whole.
    const std::wstring temporary = QVMX::wchar::mbs2wcs(pending.temporaryPath().c_str());
    container.beginEdits();

    QVMX::Status recorded;
    if (operation == "moovfirst") {
        recorded = container.moovFirst();
    } else if (operation == "timestamp") {
        recorded = container.updateTimeStamp(std::strtoull(argv[4], nullptr, 10));
    } else if (operation == "udta") {
        recorded = container.replaceUdta(argument.size(), ByteArray(argument.data(), argument.size()));
    } else if (operation == "xmp") {
        recorded = meta::appendXMP(container, argument);
    } else if (operation == "axis") {
        recorded = meta::appendAxis(container, argument);
    } else if (operation == "spherical") {
        recorded = meta::appendSphericalVideoXML(container, argument);
    } else if (operation == "location") {
        GPSInfo gps;
        gps.attachRXYZ(argv[4]);
        recorded = meta::appendLocations(container, gps);
    } else if (operation == "fullrange") {
        recorded = meta::declareRange(container, std::string(argv[4]) == "1");
    }
    if (!recorded) {
        QVMX::Console::out(L"tavrel-edit: %ls failed.\n", QVMX::wchar::mbs2wcs(operation.c_str()).c_str());
        return refuseOutput(output, editFailure(operation, recorded), &pending, needed);
    }
    // An edit with nothing to change still makes the output: the source.
    if (const QVMX::Status committed = container.commitEdits(temporary); !committed) {
        return refuseOutput(output, editFailure(operation, committed), &pending, needed);
    }
    if (!pending.commit()) return refuseOutput(output, pending.cause(), &pending, needed);
    return 0;
}
