#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "foundation/wchar.h"
#include "meta/media_services.h"
#include "tools/media_plugin.h"

namespace {

std::filesystem::path programFolder() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : self.parent_path();
}

}  // namespace

bool loadMediaPlugin() {
    const std::filesystem::path folder = programFolder();
    if (folder.empty()) return false;
    const std::string file = (folder / TAVREL_MEDIA_PLUGIN).string();
    // Kept for the life of the process: the installed service calls into it.
    void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        std::fprintf(stderr, "tavrel-dump: no frame rate or size: %s\n", ::dlerror());
        return false;
    }
    const auto describe = reinterpret_cast<DescribeMovieFn>(::dlsym(handle, kDescribeMovieSymbol));
    if (describe == nullptr) {
        std::fprintf(stderr, "tavrel-dump: %s has no %s\n", file.c_str(), kDescribeMovieSymbol);
        ::dlclose(handle);
        return false;
    }
    mediaServices().describe = [describe](const std::wstring& movie, MovieDescription& out) {
        return describe(QVMX::wchar::wcs2mbs(movie).c_str(), &out.frameRate, &out.width, &out.height) == 1;
    };
    return true;
}
