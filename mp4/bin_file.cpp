#include "mp4/bin_file.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace MP4 {

namespace {
constexpr uint64_t kCacheBlock = 256 * 1024;
}

BinFile::BinFile(const std::wstring& path, int mode) : QVMX::FileIO(path, mode) {}

void BinFile::skip(uint64_t count) { seek(addClamped(position(), count)); }

bool BinFile::fill(uint64_t count) {
    const uint64_t pos = position();
    if (cacheGeneration_ == writeGeneration() && pos >= cacheStart_ &&
        pos - cacheStart_ <= cacheSize_ && cacheSize_ - (pos - cacheStart_) >= count) {
        return true;
    }
    if (!isOpen()) return false;
    cacheSize_ = 0;
    const uint64_t want = std::max(kCacheBlock, count);
    if (cacheCapacity_ < want) {
        cache_.reset(new (std::nothrow) uint8_t[want]);
        cacheCapacity_ = cache_ ? want : 0;
        if (!cache_) return false;
    }
    const ssize_t got = ::pread(descriptor(), cache_.get(), want, static_cast<off_t>(pos));
    if (got < 0) {
        noteError(errno);
        return false;
    }
    cacheSize_ = static_cast<uint64_t>(got);
    cacheStart_ = pos;
    cacheGeneration_ = writeGeneration();
    return cacheSize_ >= count;
}

bool BinFile::readBytes(uint8_t* out, uint64_t count) {
    if (count > remaining()) return false;
    if (count > kCacheBlock) {
        // Large blocks bypass the cache.
        uint64_t done = 0;
        while (done < count) {
            const uint64_t got = read(out + done, count - done);
            if (got == kError || got == 0) {
                seek(position() - done);
                return false;
            }
            done += got;
        }
        return true;
    }
    if (!fill(count)) return false;
    std::memcpy(out, cache_.get() + (position() - cacheStart_), static_cast<size_t>(count));
    seek(position() + count);
    return true;
}

uint64_t BinFile::readAvailable(std::vector<uint8_t>& out, uint64_t count) {
    count = std::min(count, remaining());
    const size_t old = out.size();
    uint64_t done = 0;
    while (done < count) {
        const uint64_t step = std::min(count - done, kCacheBlock);
        if (!fill(1)) break;
        const uint64_t have = std::min<uint64_t>(step, cacheSize_ - (position() - cacheStart_));
        const uint8_t* from = cache_.get() + (position() - cacheStart_);
        out.insert(out.end(), from, from + have);
        seek(position() + have);
        done += have;
    }
    return out.size() - old;
}

uint8_t BinFile::read8() {
    uint8_t b = 0;
    return readBytes(&b, 1) ? b : 0;
}

uint16_t BinFile::read16() {
    uint8_t b[2];
    if (!readBytes(b, 2)) return 0;
    return static_cast<uint16_t>((b[0] << 8) | b[1]);
}

uint32_t BinFile::read32() {
    uint8_t b[4];
    if (!readBytes(b, 4)) return 0;
    return (uint32_t(b[0]) << 24) | (uint32_t(b[1]) << 16) | (uint32_t(b[2]) << 8) | b[3];
}

uint64_t BinFile::read64() {
    uint8_t b[8];
    if (!readBytes(b, 8)) return 0;
    uint64_t v = 0;
    for (uint8_t byte : b) v = (v << 8) | byte;
    return v;
}

bool BinFile::writeBytes(const uint8_t* bytes, uint64_t count) {
    uint64_t done = 0;
    while (done < count) {
        const uint64_t put = write(bytes + done, count - done);
        if (put == kError || put == 0) return false;
        done += put;
    }
    return true;
}

bool BinFile::write8(uint8_t v) { return writeBytes(&v, 1); }

bool BinFile::write16(uint16_t v) {
    const uint8_t b[2] = {uint8_t(v >> 8), uint8_t(v)};
    return writeBytes(b, 2);
}

bool BinFile::write32(uint32_t v) {
    const uint8_t b[4] = {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
    return writeBytes(b, 4);
}

bool BinFile::write64(uint64_t v) { return write32(uint32_t(v >> 32)) && write32(uint32_t(v)); }

}  // namespace MP4
