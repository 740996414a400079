#pragma once

#include <cstdint>
#include <string>

#include "foundation/byte_array.h"
#include "foundation/file_io.h"

namespace MP4 {
class BOX;
class CO64;
class Container;
class MDHD;
class STSC;
class STSZ;
class STTS;
}  // namespace meta

namespace meta {

using MP4::BOX;
using MP4::CO64;
using MP4::Container;
using MP4::MDHD;
using MP4::STSC;
using MP4::STSZ;
using MP4::STTS;

// The spatial (multi-channel PCM) audio of the newest cameras lives in the
// spatial-data uuid box: "KADT" holds the raw audio, "KATR" a complete track
// describing it. This cuts that track to a time range: it works out the kept
// byte range of the audio and rebuilds "KATR" in memory with new timing,
// chunk and size tables. The chunk offsets of the rebuilt track still count
// from the source's KADT payload; the block's edit moves them.
class SpatialSound {
public:
    static constexpr uint32_t kSamplesPerChunk = 1536;

    // Frees the rebuilt box and zeroes every field.
    void clear();
    // From the movie parsed already; start and end in seconds, a negative
    // end meaning to the end. True with nothing built when there is nothing
    // to trim or no spatial data.
    bool attach(Container& container, double start, double end);

    bool buildTrimmedKATR(Container& container);
    // Appends box (rebuilt where needed) to out; size receives its length.
    bool copyBox(Container& container, BOX& box, ByteArray& out, unsigned int& size);
    // A leaf: the tables are rewritten, anything else copied as it is; size
    // receives the bytes written, 0 on failure.
    bool copyAndModify(Container& container, BOX& box, ByteArray& out, unsigned int& size);
    // Each returns the bytes appended, 0 on failure.
    unsigned int modifyMDHD(Container& container, MDHD& box, ByteArray& out);
    unsigned int modifySTTS(Container& container, STTS& box, ByteArray& out);
    unsigned int modifySTSC(Container& container, STSC& box, ByteArray& out);
    unsigned int modifySTSZ(Container& container, STSZ& box, ByteArray& out);
    unsigned int modifyCO64(Container& container, CO64& box, ByteArray& out);
    // Appends the box's size (newSize, or the stored one when 0), type,
    // version and flags, read from file.
    bool writeFullBoxHeader(const BOX& box, QVMX::FileIO& file, ByteArray& out, unsigned int newSize);

    // Writes the rebuilt box at the file's position; nothing to write is
    // success.
    bool writeTrimmedKATR(QVMX::FileIO& file) const;

    // Diagnostics: one console line, and the kept audio as a WAV file.
    void dump(const std::wstring& name) const;
    bool dumpWAV(Container& container, const std::wstring& path) const;

    ByteArray trimmedKATR;
    uint32_t sampleSize = 0;      // bytes per sample, all channels
    uint32_t chunkCount = 0;      // chunks of the trimmed track, the last one possibly empty
    uint32_t sampleCount = 0;     // samples of the trimmed track
    uint32_t lastChunkBytes = 0;  // bytes after the full chunks
    uint32_t startByte = 0;       // kept range of the audio bytes
    uint32_t endByte = 0;
    uint64_t dataOffset = 0;      // file offset of the KADT payload
    bool built = false;
};

}  // namespace meta
