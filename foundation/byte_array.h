#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// Growable byte block in which box payloads and other binary blobs travel.
// There is no spare capacity: every append reallocates to the exact size.
class ByteArray {
public:
    ByteArray() = default;
    ByteArray(const void* bytes, uint64_t count);
    ByteArray(const ByteArray& other);
    ByteArray(ByteArray&& other) noexcept;
    ByteArray& operator=(const ByteArray& other);
    ByteArray& operator=(ByteArray&& other) noexcept;
    virtual ~ByteArray();

    // Appends count bytes; false (and nothing changed) when memory runs out.
    bool append(const void* bytes, uint64_t count);
    bool append(std::string_view text) { return append(text.data(), text.size()); }
    bool append8(uint8_t v) { return append(&v, 1); }
    bool append16be(uint16_t v);
    bool append32be(uint32_t v);
    bool append64be(uint64_t v);

    // Releases the block.
    void clear();
    // Drops the first count bytes (all of them when count >= size).
    void removeFront(uint64_t count);

    uint8_t* data = nullptr;
    uint64_t size = 0;

    bool empty() const { return size == 0; }
    std::string_view view() const {
        return {reinterpret_cast<const char*>(data), static_cast<size_t>(size)};
    }
    bool operator==(const ByteArray& other) const { return view() == other.view(); }
};
