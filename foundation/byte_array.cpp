#include "foundation/byte_array.h"

#include <cstdlib>
#include <cstring>
#include <utility>

ByteArray::ByteArray(const void* bytes, uint64_t count) { append(bytes, count); }

ByteArray::ByteArray(const ByteArray& other) { append(other.data, other.size); }

ByteArray::ByteArray(ByteArray&& other) noexcept
    : data(std::exchange(other.data, nullptr)), size(std::exchange(other.size, 0)) {}

ByteArray& ByteArray::operator=(const ByteArray& other) {
    if (this != &other) {
        clear();
        append(other.data, other.size);
    }
    return *this;
}

ByteArray& ByteArray::operator=(ByteArray&& other) noexcept {
    if (this != &other) {
        clear();
        data = std::exchange(other.data, nullptr);
        size = std::exchange(other.size, 0);
    }
    return *this;
}

ByteArray::~ByteArray() { clear(); }

bool ByteArray::append(const void* bytes, uint64_t count) {
    if (count == 0) return true;
    if (bytes == nullptr || count > SIZE_MAX - size) return false;
    auto* grown = static_cast<uint8_t*>(std::realloc(data, static_cast<size_t>(size + count)));
    if (grown == nullptr) return false;
    data = grown;
    std::memcpy(data + size, bytes, static_cast<size_t>(count));
    size += count;
    return true;
}

bool ByteArray::append16be(uint16_t v) {
    const uint8_t b[2] = {uint8_t(v >> 8), uint8_t(v)};
    return append(b, 2);
}

bool ByteArray::append32be(uint32_t v) {
    const uint8_t b[4] = {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
    return append(b, 4);
}

bool ByteArray::append64be(uint64_t v) {
    return append32be(uint32_t(v >> 32)) && append32be(uint32_t(v));
}

void ByteArray::clear() {
    std::free(data);
    data = nullptr;
    size = 0;
}

void ByteArray::removeFront(uint64_t count) {
    if (count >= size) {
        clear();
        return;
    }
    std::memmove(data, data + count, static_cast<size_t>(size - count));
    size -= count;
}
