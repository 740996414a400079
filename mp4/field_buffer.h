#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "foundation/byte_array.h"
#include "mp4/bin_file.h"

namespace MP4 {

// One list of a box's fields serves both directions. Reading takes
// big-endian values from a byte span; writing appends them to a vector. A
// read that runs past the span marks the buffer failed: that field and
// every later one read as zero, and nothing outside the span is touched.
class Fields {
public:
    // Reads from bytes, which must outlive the buffer.
    static Fields from(std::span<const uint8_t> bytes) { return Fields(bytes, nullptr); }
    // Appends to out.
    static Fields into(std::vector<uint8_t>& out) { return Fields({}, &out); }
    Fields(const Fields&) = delete;
    Fields& operator=(const Fields&) = delete;

    bool reading() const { return out_ == nullptr; }
    bool failed() const { return failed_; }
    // Bytes read (up to the first short read) or written so far.
    size_t offset() const { return reading() ? pos_ : out_->size() - start_; }
    // Bytes still to read; zero when writing.
    size_t left() const { return reading() && !failed_ ? in_.size() - pos_ : 0; }

    void u8(uint8_t& v) { small(v, 1); }
    void u16(uint16_t& v) { small(v, 2); }
    void u24(uint32_t& v) { small(v, 3); }  // the low 24 bits
    void u32(uint32_t& v) { small(v, 4); }
    void u64(uint64_t& v) { number(&v, v, 8); }
    // 64 bits when wide, else 32: a value written narrow keeps its low bits.
    void u32or64(uint64_t& v, bool wide);
    // The full-box prefix: one byte of version, 24 bits of flags.
    void versionAndFlags(uint8_t& version, uint32_t& flags);
    void bytes(uint8_t* p, size_t count);
    template <size_t N>
    void bytes(std::array<uint8_t, N>& a) {
        bytes(a.data(), N);
    }
    template <size_t N>
    void u32s(std::array<uint32_t, N>& a) {
        for (uint32_t& v : a) u32(v);
    }
    // Reading: everything still in the span. Writing: all of v.
    void rest(std::vector<uint8_t>& v);
    void rest(ByteArray& v);
    void rest(std::string& v);

    // A table of count records, each described by each(Fields&, T&).
    // Reading keeps only the whole records the span holds, so a count
    // larger than the bytes costs nothing; writing writes every record held,
    // whatever count says.
    template <class T, class Each>
    void table(std::vector<T>& records, uint64_t count, Each each);

    // Records where the field at this address lands in the output, for
    // writing one field of a box in place (see watched()).
    void watch(const void* field) { watch_ = field; }
    struct Span {
        size_t offset = 0;
        size_t size = 0;
        bool found = false;
    };
    Span watched() const { return watched_; }

private:
    Fields(std::span<const uint8_t> in, std::vector<uint8_t>* out)
        : in_(in), out_(out), start_(out != nullptr ? out->size() : 0) {}
    // Reading: the next n bytes, or nullptr (and failed) when short.
    const uint8_t* take(size_t n) {
        if (failed_ || in_.size() - pos_ < n) {
            failed_ = true;
            return nullptr;
        }
        const uint8_t* p = in_.data() + pos_;
        pos_ += n;
        return p;
    }
    // Inline: tables of millions of entries come through here.
    void number(const void* field, uint64_t& v, size_t n) {
        if (reading()) {
            const uint8_t* p = take(n);
            v = 0;
            if (p != nullptr) {
                for (size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
            }
            return;
        }
        put(field, v, n);
    }
    void put(const void* field, uint64_t v, size_t n);
    template <class T>
    void small(T& v, size_t n) {
        uint64_t w = v;
        if (n < 8) w &= (uint64_t(1) << (8 * n)) - 1;
        number(&v, w, n);
        v = static_cast<T>(w);
    }

    std::span<const uint8_t> in_;
    size_t pos_ = 0;
    bool failed_ = false;
    std::vector<uint8_t>* out_ = nullptr;
    size_t start_ = 0;
    const void* watch_ = nullptr;
    Span watched_;
};

template <class T, class Each>
void Fields::table(std::vector<T>& records, uint64_t count, Each each) {
    if (!reading()) {
        for (T& r : records) each(*this, r);
        return;
    }
    records.clear();
    // A record's width comes from its own description, written once.
    std::vector<uint8_t> probeBytes;
    Fields probe = into(probeBytes);
    T sample{};
    each(probe, sample);
    const size_t width = probeBytes.size();
    if (width == 0 || failed_) return;
    const uint64_t present = std::min<uint64_t>(count, left() / width);
    records.reserve(static_cast<size_t>(present));
    for (uint64_t i = 0; i < present; ++i) {
        T r{};
        each(*this, r);
        records.push_back(r);
    }
}

// The bytes after the file's position that lie before its limit, at most
// `most` of them; the position moves past what was read.
std::vector<uint8_t> readFieldBytes(BinFile& file, uint64_t most = ~uint64_t(0));

}  // namespace MP4
