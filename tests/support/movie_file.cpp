#include "support/movie_file.h"

namespace testsupport {

MovieFile::MovieFile(const std::string& bytes, const std::string& name)
    : path(dir.file(name)), original(bytes) {
    writeFile(path, bytes);
    container.attach(wpath());
}

bool MovieFile::temporaryLeft() const {
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        const std::string name = entry.path().filename().string();
        if (name.size() >= 8 && name.compare(name.size() - 8, 8, ".tmp.mp4") == 0) return true;
    }
    return false;
}

MP4::BOX* MovieFile::first(const char* boxPath) {
    MP4::BOX* found = nullptr;
    container.find(boxPath, [&](MP4::BOX& b) {
        if (found == nullptr) found = &b;
        return false;
    });
    return found;
}

std::string MovieFile::payload(const char* boxPath) {
    const MP4::BOX* b = first(boxPath);
    return b == nullptr ? std::string() : bytes().substr(b->start + 8, b->size - 8);
}

}  // namespace testsupport
