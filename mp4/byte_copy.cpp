#include "mp4/byte_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "mp4/shared_extents.h"

namespace MP4 {

namespace {

// Measured on 1 GiB copies between page-cache files (ext4): the kernel's
// file-to-file copy ran at cp's speed when the two offsets were congruent
// modulo the page size, and the output side was fastest when every write
// began on a 64 KiB boundary (the page cache then stores it in large
// blocks). With offsets that differ within a page, its internal 64 KiB pipe
// carries a little less than 64 KiB per step, the output drifts off those
// boundaries and the copy took 1.2-1.3 times as long. Splicing through a
// pipe of our own, in steps that keep the output on the boundaries, came
// within a few percent of cp whatever the offsets. Copies through user memory were as fast
// when all went well, but writes of 512 KiB stalled for up to seven times as
// long whenever the page cache had to find large blocks of free memory;
// writes of at most 128 KiB stayed within half again of the best time.
constexpr uint64_t kPage = 4096;
constexpr uint64_t kOutputBlock = uint64_t(64) << 10;
constexpr int kPipeBytes = 1 << 20;
constexpr uint64_t kStep = uint64_t(2) << 20;
constexpr uint64_t kWritePiece = uint64_t(128) << 10;

// How much to copy next so that the following step starts on an output
// block boundary: the rest of the current block, or a whole step.
uint64_t nextStep(off_t outAt, uint64_t left, uint64_t step) {
    const uint64_t into = static_cast<uint64_t>(outAt) % kOutputBlock;
    return std::min(left, into != 0 ? kOutputBlock - into : step);
}

bool sameFile(int a, int b) {
    struct stat sa {}, sb {};
    return ::fstat(a, &sa) != 0 || ::fstat(b, &sb) != 0 || (sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino);
}

class Pipe {
public:
    Pipe() {
        if (::pipe2(ends_, O_CLOEXEC) != 0) {
            ends_[0] = ends_[1] = -1;
            return;
        }
        int capacity = ::fcntl(ends_[1], F_SETPIPE_SZ, kPipeBytes);
        if (capacity < 0) capacity = ::fcntl(ends_[1], F_GETPIPE_SZ);
        // A source offset inside a page costs one page slot more than the
        // bytes need, so a step is at most half of what the pipe holds.
        const uint64_t half = capacity > 0 ? static_cast<uint64_t>(capacity) / 2 : 0;
        step_ = half >= kOutputBlock ? half / kOutputBlock * kOutputBlock : half / kPage * kPage;
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        for (int end : ends_) {
            if (end >= 0) ::close(end);
        }
    }
    int readEnd() const { return ends_[0]; }
    int writeEnd() const { return ends_[1]; }
    // The most one step moves; 0 when the pipe could not be made.
    uint64_t step() const { return step_; }

private:
    int ends_[2];
    uint64_t step_ = 0;
};

// Splices through a pipe of our own; false when the kernel will not (another
// kind of file, an old kernel), so the caller continues from where this
// stopped. Bytes read into the pipe but never written are read again.
bool copyThroughPipe(int from, int to, off_t& inAt, off_t& outAt, uint64_t size, uint64_t& done) {
    if (sameFile(from, to)) return false;
    Pipe pipe;
    const uint64_t step = pipe.step();
    if (step == 0) return false;
    while (done < size) {
        const uint64_t want = nextStep(outAt, size - done, step);
        uint64_t held = 0;
        ssize_t n = 1;
        while (held < want) {
            n = ::splice(from, &inAt, pipe.writeEnd(), nullptr, want - held, SPLICE_F_MOVE);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            held += static_cast<uint64_t>(n);
        }
        uint64_t written = 0;
        while (written < held) {
            const ssize_t put = ::splice(pipe.readEnd(), nullptr, to, &outAt, held - written, SPLICE_F_MOVE);
            if (put < 0 && errno == EINTR) continue;
            if (put <= 0) break;
            written += static_cast<uint64_t>(put);
        }
        done += written;
        if (written < held) {
            inAt -= static_cast<off_t>(held - written);
            return false;
        }
        // A source that ends early ends the copy; nothing at all from the
        // first read proves nothing on every file system, and an error
        // leaves the rest to the other ways of copying.
        if (held < want) return n == 0 && done > 0;
    }
    return true;
}

// The kernel's own file-to-file copy, first up to an output block boundary
// so that the rest of it starts on one.
bool copyInKernel(int from, int to, off_t& inAt, off_t& outAt, uint64_t size, uint64_t& done) {
    const uint64_t head = done + nextStep(outAt, size - done, size - done);
    while (done < size) {
        const uint64_t want = (done < head ? head : size) - done;
        const ssize_t n = ::copy_file_range(from, &inAt, to, &outAt, want, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return n == 0 && done > 0;
        done += static_cast<uint64_t>(n);
    }
    return true;
}

// The way that always works, and so the one whose failure says why: a read
// or write error is left in readError or writeError.
uint64_t copyThroughMemory(int from, int to, off_t& inAt, off_t& outAt, uint64_t size, uint64_t done,
                           int& readError, int& writeError) {
    const uint64_t bufferSize = std::min(size - done, kStep);
    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[bufferSize]);
    if (!buffer) {
        writeError = ENOMEM;
        return done;
    }
    while (done < size) {
        const uint64_t want = std::min(size - done, bufferSize);
        const ssize_t got = ::pread(from, buffer.get(), want, inAt);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) readError = errno;
        if (got <= 0) break;
        uint64_t put = 0;
        while (put < static_cast<uint64_t>(got)) {
            const uint64_t piece = std::min(static_cast<uint64_t>(got) - put, kWritePiece);
            const ssize_t n = ::pwrite(to, buffer.get() + put, piece, outAt + static_cast<off_t>(put));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) writeError = errno;
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

// The fastest way that works: how many of size bytes arrived, both offsets
// moved past them.
uint64_t copyRange(int in, int out, off_t& inAt, off_t& outAt, uint64_t size, int& readError, int& writeError) {
    uint64_t done = 0;
    // Offsets congruent within a page suit the kernel's copy; others go
    // through the pipe.
    const bool congruent = inAt % static_cast<off_t>(kPage) == outAt % static_cast<off_t>(kPage);
    const bool finished = congruent ? copyInKernel(in, out, inAt, outAt, size, done)
                                    : copyThroughPipe(in, out, inAt, outAt, size, done) ||
                                          copyInKernel(in, out, inAt, outAt, size, done);
    if (!finished) done = copyThroughMemory(in, out, inAt, outAt, size, done, readError, writeError);
    return done;
}

}  // namespace

uint64_t copyBytes(QVMX::FileIO& from, QVMX::FileIO& to, uint64_t size) {
    if (size == 0 || !from.isOpen() || !to.isOpen()) return 0;
    off_t inAt = static_cast<off_t>(from.position());
    off_t outAt = static_cast<off_t>(to.position());
    const int in = from.descriptor();
    const int out = to.descriptor();
    uint64_t done = 0;
    int readError = 0, writeError = 0;
    // Where the file system shares blocks between files, the whole blocks
    // are shared and only the edges copied.
    ClonePlan plan;
    if (planClone(in, out, static_cast<uint64_t>(inAt), static_cast<uint64_t>(outAt), size, plan)) {
        done = plan.head > 0 ? copyRange(in, out, inAt, outAt, plan.head, readError, writeError) : 0;
        if (done == plan.head &&
            cloneRange(in, out, static_cast<uint64_t>(inAt), static_cast<uint64_t>(outAt), plan.body)) {
            inAt += static_cast<off_t>(plan.body);
            outAt += static_cast<off_t>(plan.body);
            done += plan.body;
        }
    }
    if (done < size) done += copyRange(in, out, inAt, outAt, size - done, readError, writeError);
    if (readError != 0) from.noteError(readError);
    if (writeError != 0) to.noteError(writeError);
    from.seek_set(static_cast<uint64_t>(inAt));
    to.seek_set(static_cast<uint64_t>(outAt));
    // An empty write tells a reading cache over the destination that its
    // bytes may have changed.
    to.write(nullptr, 0);
    return done;
}

}  // namespace MP4
