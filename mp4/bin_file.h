#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "foundation/file_io.h"

namespace MP4 {

// The file as the box parsers see it: every read is guarded by a read limit
// (an absolute offset). A read of n bytes happens only when position <=
// limit - n; otherwise nothing is read, the position stays and the value is
// zero. Reads go through a block cache so that parsing a table of 100,000
// entries costs a handful of system calls, not one per field.
class BinFile : public QVMX::FileIO {
public:
    static constexpr uint64_t kNoLimit = ~uint64_t(0);

    BinFile(const std::wstring& path, int mode);

    uint64_t limit() const { return limit_; }
    void setLimit(uint64_t limit) { limit_ = limit; }
    // Bytes that may still be read before the limit.
    uint64_t remaining() const { return limit_ > position() ? limit_ - position() : 0; }

    // Moves the position without a system call (reads and writes are
    // positional). Use seek_set when the move must be checked.
    void seek(uint64_t position) { setPosition(position); }
    void skip(uint64_t count);

    uint8_t read8();
    uint16_t read16();
    uint32_t read32();
    uint64_t read64();
    // Reads count bytes into out, or nothing (false) when they are not there.
    bool readBytes(uint8_t* out, uint64_t count);
    // Appends up to count bytes that lie before the limit; returns how many.
    uint64_t readAvailable(std::vector<uint8_t>& out, uint64_t count);

    // Big-endian writes at the current position; true when complete.
    bool write8(uint8_t v);
    bool write16(uint16_t v);
    bool write32(uint32_t v);
    bool write64(uint64_t v);
    bool writeBytes(const uint8_t* bytes, uint64_t count);

private:
    bool fill(uint64_t count);

    uint64_t limit_ = kNoLimit;
    // Left uninitialised: every refill overwrites what it uses, and clearing
    // the whole block first cost more than the read on small files.
    std::unique_ptr<uint8_t[]> cache_;
    uint64_t cacheCapacity_ = 0;
    uint64_t cacheSize_ = 0;
    uint64_t cacheStart_ = 0;
    uint64_t cacheGeneration_ = ~uint64_t(0);
};

// Saturating addition for offsets and sizes taken from the file.
inline uint64_t addClamped(uint64_t a, uint64_t b) {
    uint64_t sum;
    return __builtin_add_overflow(a, b, &sum) ? ~uint64_t(0) : sum;
}

}  // namespace MP4
