#include "mp4/shared_extents.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <utility>
#include <vector>

namespace MP4 {

namespace {

// Smaller bodies are copied: sharing a few blocks saves little, and the
// movie box's blocks would be unshared again by the chunk-offset fix-ups.
constexpr uint64_t kSmallestClone = uint64_t(1) << 20;
// Block sizes beyond this are not believed.
constexpr uint64_t kLargestBlock = uint64_t(1) << 20;

using DevicePair = std::pair<dev_t, dev_t>;

// Pairs of file systems (source, destination) that refused a clone: asked
// once per process, not once per range.
std::mutex refusalsLock;
std::vector<DevicePair> refusals;

bool devices(int from, int to, DevicePair& pair, struct stat& in, struct stat& out) {
    if (::fstat(from, &in) != 0 || ::fstat(to, &out) != 0) return false;
    pair = {in.st_dev, out.st_dev};
    return true;
}

bool refused(const DevicePair& pair) {
    const std::lock_guard<std::mutex> hold(refusalsLock);
    return std::find(refusals.begin(), refusals.end(), pair) != refusals.end();
}

void refuse(const DevicePair& pair) {
    const std::lock_guard<std::mutex> hold(refusalsLock);
    if (std::find(refusals.begin(), refusals.end(), pair) == refusals.end()) refusals.push_back(pair);
}

}  // namespace

bool planClone(int from, int to, uint64_t inAt, uint64_t outAt, uint64_t size, ClonePlan& plan) {
    DevicePair pair;
    struct stat in {}, out {};
    if (size < kSmallestClone || !devices(from, to, pair, in, out) || refused(pair)) return false;
    if (!S_ISREG(in.st_mode) || !S_ISREG(out.st_mode) || (in.st_dev == out.st_dev && in.st_ino == out.st_ino)) {
        return false;
    }
    struct statfs fs {};
    if (::fstatfs(to, &fs) != 0 || fs.f_bsize <= 0) return false;
    const uint64_t block = static_cast<uint64_t>(fs.f_bsize);
    if (block > kLargestBlock || inAt % block != outAt % block) return false;
    const uint64_t head = (block - inAt % block) % block;
    if (head >= size) return false;
    const uint64_t rest = size - head;
    const uint64_t sourceLength = static_cast<uint64_t>(in.st_size);
    const uint64_t destinationLength = static_cast<uint64_t>(out.st_size);
    // A clone may end inside a block only at the source's end of file, and
    // only where it becomes the destination's end too.
    const bool toTheEnd = inAt + size == sourceLength && outAt + size >= destinationLength;
    const uint64_t body = toTheEnd ? rest : rest / block * block;
    if (body < kSmallestClone) return false;
    plan = {head, body};
    return true;
}

bool cloneRange(int from, int to, uint64_t inAt, uint64_t outAt, uint64_t size) {
    file_clone_range range{};
    range.src_fd = from;
    range.src_offset = inAt;
    range.src_length = size;
    range.dest_offset = outAt;
    int result;
    do {
        result = ::ioctl(to, FICLONERANGE, &range);
    } while (result != 0 && errno == EINTR);
    if (result == 0) return true;
    // Whatever the reason (no support, two file systems, a rule of this
    // one), copying is what remains; not asking again saves a refusal per
    // range.
    DevicePair pair;
    struct stat in {}, out {};
    if (devices(from, to, pair, in, out)) refuse(pair);
    return false;
}

}  // namespace MP4
