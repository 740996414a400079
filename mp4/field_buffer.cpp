#include "mp4/field_buffer.h"

#include <algorithm>

namespace MP4 {

void Fields::put(const void* field, uint64_t v, size_t n) {
    if (field == watch_ && watch_ != nullptr) watched_ = {offset(), n, true};
    for (size_t i = n; i > 0; --i) out_->push_back(static_cast<uint8_t>(v >> (8 * (i - 1))));
}

void Fields::u32or64(uint64_t& v, bool wide) {
    if (wide) {
        number(&v, v, 8);
        return;
    }
    uint64_t w = v & 0xFFFFFFFFu;
    number(&v, w, 4);
    // Reading stores the 32-bit value; writing leaves the field as it was.
    if (reading()) v = w;
}

void Fields::versionAndFlags(uint8_t& version, uint32_t& flags) {
    u8(version);
    u24(flags);
}

void Fields::bytes(uint8_t* p, size_t count) {
    if (reading()) {
        const uint8_t* from = take(count);
        if (from == nullptr) {
            std::fill(p, p + count, uint8_t(0));
        } else {
            std::copy(from, from + count, p);
        }
        return;
    }
    if (p == watch_ && watch_ != nullptr) watched_ = {offset(), count, true};
    out_->insert(out_->end(), p, p + count);
}

void Fields::rest(std::vector<uint8_t>& v) {
    if (!reading()) {
        out_->insert(out_->end(), v.begin(), v.end());
        return;
    }
    const size_t n = left();
    const uint8_t* from = n > 0 ? take(n) : nullptr;
    if (from == nullptr) {
        v.clear();
    } else {
        v.assign(from, from + n);
    }
}

void Fields::rest(ByteArray& v) {
    if (!reading()) {
        if (v.size > 0) out_->insert(out_->end(), v.data, v.data + v.size);
        return;
    }
    v.clear();
    const size_t n = left();
    const uint8_t* from = n > 0 ? take(n) : nullptr;
    if (from != nullptr) v.append(from, n);
}

void Fields::rest(std::string& v) {
    if (!reading()) {
        out_->insert(out_->end(), v.begin(), v.end());
        return;
    }
    const size_t n = left();
    const uint8_t* from = n > 0 ? take(n) : nullptr;
    if (from == nullptr) {
        v.clear();
    } else {
        v.assign(reinterpret_cast<const char*>(from), n);
    }
}

std::vector<uint8_t> readFieldBytes(BinFile& file, uint64_t most) {
    std::vector<uint8_t> bytes;
    // The limit never lies past the end of the file, so this much is there.
    const uint64_t want = std::min(most, file.remaining());
    bytes.reserve(static_cast<size_t>(std::min<uint64_t>(want, file.length())));
    file.readAvailable(bytes, want);
    return bytes;
}

}  // namespace MP4
