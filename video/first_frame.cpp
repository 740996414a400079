#include "video/first_frame.h"

#include <sys/stat.h>

#include <mutex>

#include "video/movie_file.h"

namespace QVMX {

namespace {

struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};

    bool operator==(const FileIdentity& o) const {
        return device == o.device && inode == o.inode && size == o.size && modified.tv_sec == o.modified.tv_sec &&
               modified.tv_nsec == o.modified.tv_nsec;
    }
};

bool identify(const std::string& path, FileIdentity& out) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return false;
    out = FileIdentity{st.st_dev, st.st_ino, st.st_size, st.st_mtim};
    return true;
}

struct KeptFrame {
    FileIdentity file;
    int stream = -1;
    ff::FramePtr frame;
};

std::mutex& keptLock() {
    static std::mutex lock;
    return lock;
}

KeptFrame& kept() {
    static KeptFrame frame;
    return frame;
}

ff::FramePtr share(const AVFrame* frame) { return ff::FramePtr(av_frame_clone(frame)); }

}  // namespace

ff::FramePtr firstVideoFrame(const std::string& path, AVFormatContext* format, int streamIndex) {
    FileIdentity file;
    const bool known = identify(path, file);
    std::lock_guard<std::mutex> hold(keptLock());
    KeptFrame& last = kept();
    if (known && last.frame && last.stream == streamIndex && last.file == file) return share(last.frame.get());
    last = KeptFrame{};
    ff::FramePtr frame = decodeFirstFrame(format, streamIndex);
    if (frame && known) last = KeptFrame{file, streamIndex, share(frame.get())};
    return frame;
}

ff::FramePtr keptFirstVideoFrame(const std::string& path) {
    FileIdentity file;
    if (!identify(path, file)) return nullptr;
    std::lock_guard<std::mutex> hold(keptLock());
    const KeptFrame& last = kept();
    return last.frame && last.file == file ? share(last.frame.get()) : nullptr;
}

void forgetFirstVideoFrame() {
    std::lock_guard<std::mutex> hold(keptLock());
    kept() = KeptFrame{};
}

}  // namespace QVMX
