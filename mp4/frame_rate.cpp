#include "mp4/frame_rate.h"

#include <limits>
#include <numeric>

#include "mp4/box.h"
#include "mp4/sample_entry.h"

namespace MP4 {

namespace {

constexpr uint64_t kMaxCount = std::numeric_limits<int32_t>::max();
constexpr uint64_t kMaxDuration = std::numeric_limits<int64_t>::max();

// num / den as a float, computed from the fraction in lowest terms.
float ratio(uint64_t num, uint64_t den) {
    const uint64_t common = std::gcd(num, den);
    return static_cast<float>(double(num / common) / double(den / common));
}

// Adds samples of one duration while the sums stay within their fields.
void add(SampleSpan& span, uint64_t duration, uint64_t samples) {
    if (samples > kMaxCount - span.samples) return;
    if (samples != 0 && duration > (kMaxDuration - span.duration) / samples) return;
    span.duration += duration * samples;
    span.samples += samples;
}

// Reads big-endian 32-bit fields one after another, within a box.
class FieldReader {
public:
    FieldReader(const uint8_t* bytes, uint64_t size) : bytes_(bytes), size_(size) {}
    bool has(uint64_t n) const { return size_ - at_ >= n; }
    uint32_t next() {
        const uint32_t v = has(4) ? readBE32(bytes_ + at_) : 0;
        at_ = has(4) ? at_ + 4 : size_;
        return v;
    }
    void skip(uint64_t n) { at_ = has(n) ? at_ + n : size_; }

private:
    const uint8_t* bytes_;
    uint64_t size_;
    uint64_t at_ = 0;
};

}  // namespace

void addFragmentSamples(const uint8_t* moof, size_t size, uint32_t trackId, uint32_t defaultDuration,
                        SampleSpan& span) {
    uint64_t stopped = 0;
    for (const ChildSpan& traf : childSpans(moof, size, 0, stopped)) {
        if (traf.type != fourcc("traf")) continue;
        const uint8_t* inside = moof + traf.start + traf.headerSize;
        const uint64_t length = traf.size - traf.headerSize;
        bool ours = false;
        uint32_t fragmentDuration = defaultDuration;
        for (const ChildSpan& child : childSpans(inside, length, 0, stopped)) {
            FieldReader f(inside + child.start + child.headerSize, child.size - child.headerSize);
            if (child.type == fourcc("tfhd")) {
                const uint32_t flags = f.next() & 0xFFFFFF;
                ours = f.has(4) && f.next() == trackId;
                if ((flags & 0x01) != 0) f.skip(8);  // base data offset
                if ((flags & 0x02) != 0) f.skip(4);  // sample description index
                if ((flags & 0x08) != 0 && f.has(4)) fragmentDuration = f.next();
            } else if (child.type == fourcc("trun") && ours) {
                const uint32_t flags = f.next() & 0xFFFFFF;
                const uint32_t count = f.next();
                if ((flags & 0x001) != 0) f.skip(4);  // data offset
                if ((flags & 0x004) != 0) f.skip(4);  // first sample flags
                if ((flags & 0x100) == 0) {
                    add(span, fragmentDuration, count);
                    continue;
                }
                // Duration, then size, flags and composition offset as present.
                const uint64_t others =
                    4 * uint64_t(((flags & 0x200) != 0) + ((flags & 0x400) != 0) + ((flags & 0x800) != 0));
                for (uint32_t i = 0; i < count && f.has(4 + others); ++i) {
                    add(span, f.next(), 1);
                    f.skip(others);
                }
            }
        }
    }
}

uint32_t trexDefaultDuration(const uint8_t* mvex, size_t size, uint32_t trackId) {
    uint64_t stopped = 0;
    for (const ChildSpan& child : childSpans(mvex, size, 0, stopped)) {
        if (child.type != fourcc("trex")) continue;
        FieldReader f(mvex + child.start + child.headerSize, child.size - child.headerSize);
        f.skip(4);  // version and flags
        if (f.next() != trackId) continue;
        f.skip(4);  // default sample description index
        return f.next();
    }
    return 0;
}

float nominalFrameRate(uint32_t timeScale, const std::vector<STTS::Entry>& entries, const SampleSpan& fragments) {
    const uint64_t scale = timeScale == 0 || timeScale > kMaxCount ? 1 : timeScale;
    uint64_t duration = 0;
    uint64_t samples = 0;
    bool overflow = false;
    for (const STTS::Entry& e : entries) {
        const uint64_t span = uint64_t(e.sampleDelta) * e.sampleCount;
        overflow = overflow || span > kMaxDuration - duration;
        if (overflow) break;
        duration += span;
        samples += e.sampleCount;
    }
    // A table past the fields' range adds nothing, as if it had no duration.
    if (overflow || duration == 0 || samples > kMaxCount) duration = samples = 0;
    if (fragments.duration <= kMaxDuration - duration && fragments.samples <= kMaxCount - samples) {
        duration += fragments.duration;
        samples += fragments.samples;
    }
    if (duration > 0 && samples > 0) return ratio(scale * samples, duration);

    const bool oneDelta = entries.size() == 1 || (entries.size() == 2 && entries[1].sampleCount == 1);
    if (oneDelta && entries[0].sampleDelta > 0) return ratio(scale, entries[0].sampleDelta);
    return 0.0f;
}

}  // namespace MP4
