// tavrel-dump FILE...: prints the box tree of each movie, then its location
// and view values. tavrel-dump --summary FILE...: what the movie probe reads.
#include <clocale>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/wchar.h"
#include "mp4/container.h"
#include "tools/dump_geo.h"
#include "tools/dump_camera.h"
#include "tools/dump_h264.h"
#include "tools/dump_summary.h"
#ifdef TAVREL_MEDIA_PLUGIN
#include "tools/media_plugin.h"
#endif

namespace {

// A regular file that opens; otherwise a line saying why not.
bool openable(const std::wstring& path) {
    // Opening first gives the ordinary open-failure line for a missing path.
    QVMX::FileIO probe(path, 'r');
    if (!probe.isOpen()) {
        QVMX::Console::out(L"tavrel-dump: cannot open %ls\n", path.c_str());
        return false;
    }
    std::error_code error;
    if (std::filesystem::is_directory(QVMX::wchar::wcs2mbs(path).c_str(), error)) {
        QVMX::Console::out(L"tavrel-dump: %ls is a directory\n", path.c_str());
        return false;
    }
    return true;
}

int dumpFile(const std::wstring& path) {
    if (!openable(path)) return 1;
    MP4::Container container;
    if (!container.attach(path)) {
        QVMX::Console::out(L"tavrel-dump: cannot read %ls\n", path.c_str());
        return 1;
    }
    container.dump();
    dumpGeo(container);
    dumpCameraMeta(container);
    dumpParameterSets(container);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    const bool summary = argc >= 2 && std::string(argv[1]) == "--summary";
#ifdef TAVREL_MEDIA_PLUGIN
    if (summary) loadMediaPlugin();
#endif
    const int first = summary ? 2 : 1;
    if (argc <= first) {
        QVMX::Console::out(L"usage: tavrel-dump [--summary] FILE...\n");
        return 1;
    }
    int status = 0;
    for (int i = first; i < argc; ++i) {
        const std::wstring path = QVMX::wchar::mbs2wcs(argv[i]);
        if (summary) {
            if (!openable(path) || !dumpSummary(path)) status = 1;
        } else if (dumpFile(path) != 0) {
            status = 1;
        }
    }
    return status;
}
