#include "mp4/byte_copy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace MP4 {

namespace {

constexpr uint64_t kKernelStep = uint64_t(1) << 30;
constexpr uint64_t kBufferSize = uint64_t(4) << 20;

// Errors after which the buffered path may still succeed: the kernel cannot
// copy between these two files (other file system, special file, old kernel).
bool kernelCopyUnsupported(int err) {
    return err == EXDEV || err == EINVAL || err == ENOSYS || err == EOPNOTSUPP || err == EBADF ||
           err == ETXTBSY || err == EPERM;
}

uint64_t copyBuffered(int in, off_t& inAt, int out, off_t& outAt, uint64_t size) {
    const uint64_t bufferSize = std::min(size, kBufferSize);
    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[bufferSize]);
    if (!buffer) return 0;
    uint64_t done = 0;
    while (done < size) {
        const uint64_t want = std::min(size - done, bufferSize);
        const ssize_t got = ::pread(in, buffer.get(), want, inAt);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        uint64_t put = 0;
        while (put < static_cast<uint64_t>(got)) {
            const ssize_t n = ::pwrite(out, buffer.get() + put, static_cast<uint64_t>(got) - put,
                                       outAt + static_cast<off_t>(put));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            put += static_cast<uint64_t>(n);
        }
        inAt += static_cast<off_t>(put);
        outAt += static_cast<off_t>(put);
        done += put;
        if (put != static_cast<uint64_t>(got)) break;
    }
    return done;
}

}  // namespace

uint64_t copyBytes(QVMX::FileIO& from, QVMX::FileIO& to, uint64_t size) {
    if (size == 0 || !from.isOpen() || !to.isOpen()) return 0;
    off_t inAt = static_cast<off_t>(from.position());
    off_t outAt = static_cast<off_t>(to.position());
    uint64_t done = 0;
    bool kernel = true;
    while (done < size && kernel) {
        const uint64_t step = std::min(size - done, kKernelStep);
        const ssize_t n = ::copy_file_range(from.descriptor(), &inAt, to.descriptor(), &outAt,
                                            step, 0);
        if (n > 0) {
            done += static_cast<uint64_t>(n);
        } else if (n == 0) {
            break;  // the source ended
        } else if (errno == EINTR) {
            continue;
        } else if (kernelCopyUnsupported(errno)) {
            kernel = false;
        } else {
            break;
        }
    }
    if (!kernel) done += copyBuffered(from.descriptor(), inAt, to.descriptor(), outAt, size - done);
    from.seek_set(static_cast<uint64_t>(inAt));
    to.seek_set(static_cast<uint64_t>(outAt));
    // An empty write tells a reading cache over the destination that its
    // bytes may have changed.
    to.write(nullptr, 0);
    return done;
}

}  // namespace MP4
