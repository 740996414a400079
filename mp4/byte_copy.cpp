#include "mp4/byte_copy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

namespace MP4 {

namespace {

// Measured on 1 GiB copies between page-cache files: reads of 2 MiB were
// the fastest, and a read and a write through user memory beat the kernel's
// file-to-file copy whenever source and destination offsets are not
// page-aligned to each other, which is the usual case when boxes move.
// Single writes above 512 KiB were up to three times slower, and erratic,
// once other programs had freed much memory (the page cache then takes
// large blocks of memory that are slow to touch the first time).
constexpr uint64_t kStep = uint64_t(2) << 20;
constexpr uint64_t kWritePiece = uint64_t(512) << 10;

}  // namespace

uint64_t copyBytes(QVMX::FileIO& from, QVMX::FileIO& to, uint64_t size) {
    if (size == 0 || !from.isOpen() || !to.isOpen()) return 0;
    const uint64_t bufferSize = std::min(size, kStep);
    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[bufferSize]);
    if (!buffer) return 0;
    off_t inAt = static_cast<off_t>(from.position());
    off_t outAt = static_cast<off_t>(to.position());
    uint64_t done = 0;
    while (done < size) {
        const uint64_t want = std::min(size - done, bufferSize);
        const ssize_t got = ::pread(from.descriptor(), buffer.get(), want, inAt);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        uint64_t put = 0;
        while (put < static_cast<uint64_t>(got)) {
            const uint64_t piece = std::min(static_cast<uint64_t>(got) - put, kWritePiece);
            const ssize_t n = ::pwrite(to.descriptor(), buffer.get() + put, piece,
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
    from.seek_set(static_cast<uint64_t>(inAt));
    to.seek_set(static_cast<uint64_t>(outAt));
    // An empty write tells a reading cache over the destination that its
    // bytes may have changed.
    to.write(nullptr, 0);
    return done;
}

}  // namespace MP4
