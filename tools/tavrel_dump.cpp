// tavrel-dump FILE...: prints the box tree of each movie, then its location
// and view values. tavrel-dump --summary FILE...: what the movie probe reads.
// tavrel-dump --json FILE...: all of it as one JSON array.
#include <clocale>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/notices.h"
#include "foundation/wchar.h"
#include "meta/spatial_block.h"
#include "mp4/container.h"
#include "tools/dump_geo.h"
#include "tools/dump_camera.h"
#include "tools/dump_h264.h"
#include "tools/dump_json.h"
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
    if (container.root() != nullptr) {
        container.root()->dump([](const std::wstring& line) { QVMX::Console::out(L"%ls", line.c_str()); });
    }
    dumpGeo(container);
    dumpCameraMeta(container);
    dumpParameterSets(container);
    return 0;
}

// The JSON goes to standard output alone: what the probe and the parsers
// print on the way is dropped.
int dumpJsonFiles(int count, char** paths) {
    std::FILE* quiet = std::fopen("/dev/null", "w");
    if (quiet != nullptr) QVMX::Console::setStream(quiet);
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    int status = 0;
    for (int i = 0; i < count; ++i) {
        try {
            all.push_back(dumpJson(paths[i]));
        } catch (...) {
            // Whatever a hostile file makes the readers throw, the file still gets its object.
            all.push_back({{"file", paths[i]},
                           {"error", {{"code", "cannot-read"}, {"message", std::string("cannot read ") + paths[i]}}}});
        }
        if (all.back().contains("error")) status = 1;
    }
    const std::string text = all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) status = 1;
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    // A camera's spatial block is read with its track.
    meta::knowSpatialBlock();
    const bool summary = argc >= 2 && std::string(argv[1]) == "--summary";
    const bool json = argc >= 2 && std::string(argv[1]) == "--json";
#ifdef TAVREL_MEDIA_PLUGIN
    if (summary || json) loadMediaPlugin();
#endif
    const int first = summary || json ? 2 : 1;
    if (argc <= first) {
        QVMX::Console::out(L"usage: tavrel-dump [--summary | --json] FILE...\n");
        return 1;
    }
    // The JSON goes out alone, so only the other forms show the notices.
    if (json) return dumpJsonFiles(argc - first, argv + first);
    QVMX::Notices::install(QVMX::Notices::toConsole());
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
