#include "app/media_plugin_loader.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>
#include <system_error>
#include <vector>

#include "app/media_plugin.h"

namespace {

namespace fs = std::filesystem;

fs::path programFolder() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path() : self.parent_path();
}

std::vector<fs::path> candidates() {
    const fs::path folder = programFolder();
    if (folder.empty()) return {};
    const fs::path installed = folder.parent_path() / TAVREL_PLUGIN_FOLDER / kMediaPluginFile;
    const fs::path beside = folder / kMediaPluginFile;
    const fs::path buildTree = folder.parent_path() / "app" / kMediaPluginFile;
    // An installed program names the installed place first when none is found.
    if (folder.filename() == "bin") return {installed, beside, buildTree};
    return {beside, installed, buildTree};
}

fs::path found() {
    const std::vector<fs::path> places = candidates();
    for (const fs::path& place : places) {
        std::error_code error;
        if (fs::is_regular_file(place, error)) return place;
    }
    return places.empty() ? fs::path(kMediaPluginFile) : places.front();
}

struct Loaded {
    MediaPlugin* plugin = nullptr;
    std::string problem;
};

Loaded load() {
    const fs::path file = found();
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return {nullptr, "the media plug-in is missing"};
    // Kept open for the life of the process: the plug-in is called into until the end.
    void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        return {nullptr, std::string("the media plug-in cannot be loaded (") + (why != nullptr ? why : "") + ")"};
    }
    const auto entry = reinterpret_cast<MediaPluginEntry>(::dlsym(handle, kMediaPluginSymbol));
    MediaPlugin* plugin = entry != nullptr ? entry(kMediaPluginVersion) : nullptr;
    if (plugin == nullptr) {
        ::dlclose(handle);
        return {nullptr, "the media plug-in is not of this program's version"};
    }
    return {plugin, ""};
}

std::once_flag g_once;
Loaded g_loaded;
std::mutex g_problemLock;

}  // namespace

MediaPlugin* mediaPlugin() {
    std::call_once(g_once, [] {
        Loaded loaded = load();
        std::lock_guard<std::mutex> hold(g_problemLock);
        g_loaded = std::move(loaded);
    });
    return g_loaded.plugin;
}

bool mediaPluginPresent() {
    std::error_code error;
    return fs::is_regular_file(found(), error);
}

std::string mediaPluginPath() { return found().string(); }

std::string mediaPluginProblem() {
    std::lock_guard<std::mutex> hold(g_problemLock);
    return g_loaded.problem;
}
