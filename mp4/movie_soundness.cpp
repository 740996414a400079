#include "mp4/movie_soundness.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "foundation/wchar.h"
#include "mp4/aux_info_offsets.h"
#include "mp4/box_edits.h"
#include "mp4/container_boxes.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "mp4/track_fragments.h"

namespace MP4 {

namespace {

constexpr uint64_t kTableBlock = 64 * 1024;

std::string trackText(size_t track) { return "track " + std::to_string(track); }

const std::string kTruncated = " points past the end of the file: the movie is truncated";

// Where the bytes of the file lie: the top-level boxes, in file order.
class TopLevel {
public:
    TopLevel(const ROOT& root, uint64_t length) : length_(length) {
        for (const auto& child : root.children) boxes_.push_back(child.get());
    }

    // "" when [offset, offset + size) lies inside the payload of one box
    // that is moved as a whole; else what is wrong, after the subject.
    std::string place(uint64_t offset, uint64_t size) const {
        const uint64_t end = addClamped(offset, size);
        if (end > length_ || offset >= length_) return kTruncated;
        for (const BOX* box : boxes_) {
            if (offset < box->start || offset >= box->end()) continue;
            if (offset < box->start + box->headerSize()) return " points into the header of a box";
            if (end > box->end()) return " has samples that run across the end of a box";
            if (box->isType(fourcc("moov"))) return " keeps samples inside the movie box";
            return {};
        }
        return " points at bytes that belong to no box";
    }

    // Whether offset lies in the payload of a top-level box, the movie box
    // included.
    bool holds(uint64_t offset) const {
        return std::any_of(boxes_.begin(), boxes_.end(), [offset](const BOX* box) {
            return offset >= box->start + box->headerSize() && offset < box->end();
        });
    }

private:
    uint64_t length_;
    std::vector<const BOX*> boxes_;
};

template <typename T>
const T* child(const BOX* box, FourCC type) {
    const auto* nested = dynamic_cast<const NestedBox*>(box);
    if (nested == nullptr) return nullptr;
    for (const auto& c : nested->children) {
        if (c->isType(type)) return dynamic_cast<const T*>(c.get());
    }
    return nullptr;
}

// Reads a chunk-offset table block by block, each entry in turn.
class ChunkReader {
public:
    ChunkReader(BinFile& file, const STCO& table) : file_(file), table_(table) {}

    bool complete() const {
        const uint64_t end = std::min(heldEnd(table_), file_.length());
        return table_.tableOffset <= end &&
               table_.entryCount <= (end - table_.tableOffset) / table_.entryWidth();
    }
    bool next(uint64_t& offset) {
        const uint64_t width = table_.entryWidth();
        if (cursor_ >= block_.size()) {
            const uint64_t total = uint64_t(table_.entryCount) * width;
            const uint64_t n = std::min(kTableBlock, total - done_);
            if (n == 0) return false;
            block_.resize(static_cast<size_t>(n));
            file_.setLimit(BinFile::kNoLimit);
            file_.seek(table_.tableOffset + done_);
            if (!file_.readBytes(block_.data(), n)) return false;
            done_ += n;
            cursor_ = 0;
        }
        const uint8_t* p = block_.data() + cursor_;
        offset = width == 4 ? readBE32(p) : readBE64(p);
        cursor_ += static_cast<size_t>(width);
        return true;
    }

private:
    BinFile& file_;
    const STCO& table_;
    std::vector<uint8_t> block_;
    size_t cursor_ = 0;
    uint64_t done_ = 0;
};

// Payload bytes of a box, for the small boxes of a fragment or a table.
bool payloadOf(BinFile& file, const BOX& box, std::vector<uint8_t>& out) {
    return readPayload(file, box, 1u << 24, out);
}

// A track's auxiliary-information tables (saio) must add up and point at
// bytes inside a box of the file, which a rewrite can follow.
std::string auxInfoProblem(BinFile& file, const TopLevel& top, const BOX& stbl, const std::string& subject) {
    const auto* nested = dynamic_cast<const NestedBox*>(&stbl);
    if (nested == nullptr) return {};
    for (const auto& table : nested->children) {
        if (!table->isType(fourcc("saio"))) continue;
        std::vector<uint8_t> payload;
        AuxInfoOffsets offsets;
        if (!payloadOf(file, *table, payload) || !auxInfoOffsets(payload, offsets)) {
            return subject + "'s auxiliary-information table is damaged";
        }
        for (uint64_t i = 0; i < offsets.count; ++i) {
            const uint64_t offset = offsets.read(payload, i);
            if (offset >= file.length()) return subject + "'s auxiliary information" + kTruncated;
            if (!top.holds(offset)) return subject + "'s auxiliary information lies outside every box";
        }
    }
    return {};
}

std::string trackProblem(BinFile& file, const TopLevel& top, const BOX& trak, size_t number) {
    const std::string subject = trackText(number);
    const BOX* stbl = child<BOX>(child<BOX>(child<BOX>(&trak, fourcc("mdia")), fourcc("minf")), fourcc("stbl"));
    if (stbl == nullptr) return {};
    if (std::string aux = auxInfoProblem(file, top, *stbl, subject); !aux.empty()) return aux;
    const auto* stco = child<STCO>(stbl, fourcc("stco"));
    if (stco == nullptr) stco = child<STCO>(stbl, fourcc("co64"));
    const auto* stsc = child<STSC>(stbl, fourcc("stsc"));
    const auto* stsz = child<STSZ>(stbl, fourcc("stsz"));
    const auto* stts = child<STTS>(stbl, fourcc("stts"));
    if (stco == nullptr || stco->entryCount == 0) {
        // No chunks: an empty track (as a fragmented movie's are) or one
        // with samples but nowhere to find them.
        const bool samples = (stsz != nullptr && stsz->sampleCount > 0);
        return samples ? subject + " lists samples but not where they are: the movie is damaged" : std::string();
    }
    if (stsc == nullptr) return subject + " has chunks but no sample-to-chunk table";
    // Compact sample sizes (stz2) are not read: without stsz only the chunk
    // starts are checked.
    ChunkReader chunks(file, *stco);
    if (!chunks.complete() || stsc->entries.size() != stsc->entryCount ||
        (stsz != nullptr && stsz->sampleSize == 0 && stsz->sizes.size() != stsz->sampleCount)) {
        return subject + "'s sample tables are cut short";
    }
    uint64_t sample = 0;
    size_t run = 0;
    for (uint32_t chunk = 1; chunk <= stco->entryCount; ++chunk) {
        while (run + 1 < stsc->entries.size() && stsc->entries[run + 1].firstChunk <= chunk) ++run;
        if (stsc->entries.empty() || stsc->entries[run].firstChunk > chunk) {
            return subject + "'s sample-to-chunk table does not start at its first chunk";
        }
        const uint64_t perChunk = stsc->entries[run].samplesPerChunk;
        uint64_t offset = 0;
        if (!chunks.next(offset)) return subject + "'s sample tables are cut short";
        uint64_t bytes = 0;
        if (stsz != nullptr) {
            const uint64_t count = stsz->sampleCount;
            if (sample + perChunk > count) return subject + "'s sample tables disagree on its number of samples";
            if (stsz->sampleSize != 0) {
                bytes = perChunk * stsz->sampleSize;
            } else {
                for (uint64_t k = 0; k < perChunk; ++k) bytes += stsz->sizes[static_cast<size_t>(sample + k)];
            }
        }
        sample += perChunk;
        if (bytes == 0 && stsz != nullptr) continue;  // nothing of the file is used
        const std::string wrong = top.place(offset, std::max<uint64_t>(bytes, 1));
        if (!wrong.empty()) return subject + wrong;
    }
    if (stsz != nullptr && sample != stsz->sampleCount) {
        return subject + "'s sample tables disagree on its number of samples";
    }
    if (stts != nullptr && stts->entries.size() == stts->entryCount) {
        uint64_t timed = 0;
        for (const auto& e : stts->entries) timed += e.sampleCount;
        if (timed != sample) return subject + "'s sample tables disagree on its number of samples";
    }
    return {};
}

// Reads big-endian numbers from bytes [at, end) of a payload; a read past
// end clears ok.
struct Cursor {
    const std::vector<uint8_t>& bytes;
    size_t at = 0;
    size_t end = 0;
    bool ok = true;
    size_t left() const { return end - at; }
    uint64_t read(size_t width) {
        if (!ok || end - at < width) {
            ok = false;
            return 0;
        }
        uint64_t v = 0;
        for (size_t i = 0; i < width; ++i) v = (v << 8) | bytes[at + i];
        at += width;
        return v;
    }
    uint32_t u32() { return static_cast<uint32_t>(read(4)); }
    uint64_t u64() { return read(8); }
};

// One movie fragment: every run of every track fragment must find its
// samples inside the file. A run's offset counts from its track fragment's
// base: the one its header names, else the fragment's first byte (for the
// first track fragment, or when the header says so), else the end of the
// previous track fragment's data.
std::string fragmentProblem(BinFile& file, const TopLevel& top, const BOX& moof) {
    const std::string subject = "the fragment at byte " + std::to_string(moof.start);
    std::vector<uint8_t> bytes;
    std::vector<PayloadChild> parts;
    if (!payloadOf(file, moof, bytes) || !payloadChildren(bytes, 0, bytes.size(), parts)) {
        return subject + " is damaged";
    }
    uint64_t nextData = moof.start;
    for (const PayloadChild& traf : parts) {
        if (traf.type != fourcc("traf")) continue;
        std::vector<PayloadChild> boxes;
        if (!payloadChildren(bytes, traf.at, traf.size, boxes)) return subject + " is damaged";
        uint32_t defaultSize = 0;
        bool header = false;
        uint64_t base = nextData;
        for (const PayloadChild& b : boxes) {
            Cursor c{bytes, b.at, b.at + b.size};
            if (b.type == fourcc("tfhd")) {
                const uint32_t flags = c.u32() & 0xFFFFFF;
                c.u32();  // track id
                if (flags & kBaseDataOffsetPresent) {
                    base = c.u64();
                } else if (flags & kDefaultBaseIsMoof) {
                    base = moof.start;
                }
                if (flags & kSampleDescriptionIndexPresent) c.u32();
                if (flags & kDefaultSampleDurationPresent) c.u32();
                if (flags & kDefaultSampleSizePresent) defaultSize = c.u32();
                if (!c.ok) return subject + " is damaged";
                nextData = base;
                header = true;
            } else if (b.type == fourcc("trun") && header) {
                const uint32_t flags = c.u32() & 0xFFFFFF;
                const uint32_t count = c.u32();
                int32_t dataOffset = 0;
                if (flags & kDataOffsetPresent) dataOffset = static_cast<int32_t>(c.u32());
                if (flags & kFirstSampleFlagsPresent) c.u32();
                uint64_t total = 0;
                const size_t each = 4 * (((flags & kSampleDurationPresent) != 0) + ((flags & kSampleSizePresent) != 0) +
                                         ((flags & kSampleFlagsPresent) != 0) + ((flags & kSampleCompositionPresent) != 0));
                if (!c.ok || (each > 0 && count > c.left() / each)) return subject + " is damaged";
                for (uint32_t i = 0; i < count; ++i) {
                    if (flags & kSampleDurationPresent) c.u32();
                    total += (flags & kSampleSizePresent) ? c.u32() : defaultSize;
                    if (flags & kSampleFlagsPresent) c.u32();
                    if (flags & kSampleCompositionPresent) c.u32();
                }
                const int64_t signedBase = static_cast<int64_t>(std::min<uint64_t>(base, uint64_t{1} << 62));
                const uint64_t start =
                    (flags & kDataOffsetPresent) ? static_cast<uint64_t>(signedBase + dataOffset) : nextData;
                if (total > 0) {
                    const std::string wrong = top.place(start, total);
                    if (!wrong.empty()) return subject + wrong;
                }
                nextData = start + total;
            }
        }
    }
    return {};
}

}  // namespace

std::string soundnessProblem(Container& container, BinFile& file) {
    const ROOT* root = container.root();
    if (root == nullptr || container.moov() == nullptr) return "it holds no movie box: it is not a movie";
    const TopLevel top(*root, file.length());
    size_t number = 0;
    std::string problem;
    container.find("moov.trak", [&](BOX& trak) {
        problem = trackProblem(file, top, trak, ++number);
        return problem.empty();
    });
    if (!problem.empty()) return problem;

    for (const auto& child : root->children) {
        if (child->isType(fourcc("moof"))) {
            if (child->start < container.moov()->start) {
                return "its movie box comes after its fragments, which a rewrite would separate from their data";
            }
            problem = fragmentProblem(file, top, *child);
            if (!problem.empty()) return problem;
        }
    }
    return {};
}

std::string sourceFileProblem(const std::wstring& path) {
    struct stat st {};
    const std::string name = QVMX::wchar::wcs2mbs(path).c_str();
    if (::stat(name.c_str(), &st) != 0) {
        return errno == ENOENT ? "there is no such file" : "it cannot be opened for reading";
    }
    if (S_ISDIR(st.st_mode)) return "it is a folder, not a movie";
    return {};
}

std::string soundnessProblem(const std::wstring& path) {
    if (std::string problem = sourceFileProblem(path); !problem.empty()) return problem;
    Container container;
    if (!container.attach(path)) return "it cannot be opened for reading";
    BinFile file(path, 'r');
    if (!file.isOpen()) return "it cannot be opened for reading";
    return soundnessProblem(container, file);
}

}  // namespace MP4
