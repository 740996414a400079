#pragma once

// A private directory for fuzz targets that edit whole movie files: inputs are
// written there, results read back, and every file removed between inputs.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace fuzzsupport {

// Memory-backed when there is such a place: every input writes files. The
// directory is made on first use and removed when the process ends.
inline const std::string& scratchDirectory() {
    static char memoryName[] = "/dev/shm/tavrel-fuzz-XXXXXX";
    static char diskName[] = "/tmp/tavrel-fuzz-XXXXXX";
    static char* made = nullptr;
    static const std::string dir = [] {
        made = ::mkdtemp(memoryName) != nullptr ? memoryName : ::mkdtemp(diskName);
        if (made == nullptr) std::abort();
        std::atexit([] { ::rmdir(made); });
        return std::string(made);
    }();
    return dir;
}

inline void writeAll(const std::string& path, std::string_view bytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) std::abort();
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) std::abort();
    std::fclose(f);
}

inline std::string readAll(const std::string& path) {
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
inline void checkAndEmpty(const std::string& dir) {
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

inline std::wstring wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

}  // namespace fuzzsupport
