#include "support/wide_offsets.h"

#include <set>

#include "tools/builders/box_builder.h"

using namespace builders;

namespace testsupport {

namespace {

uint64_t beAt(const std::string& b, size_t at, unsigned width) {
    uint64_t v = 0;
    for (unsigned i = 0; i < width; ++i) v = (v << 8) | uint8_t(b[at + i]);
    return v;
}

std::string rewrite(const std::string& b, size_t from, size_t to, int64_t shift) {
    static const std::set<std::string> containers = {"moov", "trak", "mdia", "minf", "stbl"};
    std::string out;
    size_t pos = from;
    while (pos + 8 <= to) {
        const uint64_t size = beAt(b, pos, 4);
        const std::string type = b.substr(pos + 4, 4);
        if (size < 8 || size > to - pos) break;
        if (containers.count(type) != 0) {
            out += box(type, rewrite(b, pos + 8, pos + size, shift));
        } else if (type == "stco" && size >= 16) {
            const uint64_t count = beAt(b, pos + 12, 4);
            std::string payload = b.substr(pos + 8, 8);
            for (uint64_t i = 0; i < count && 16 + 4 * i + 4 <= size; ++i) {
                payload += be64(beAt(b, pos + 16 + 4 * i, 4) + static_cast<uint64_t>(shift));
            }
            out += box("co64", payload);
        } else {
            out += b.substr(pos, size);
        }
        pos += size;
    }
    return out + b.substr(pos, to - pos);
}

size_t topLevel(const std::string& b, const std::string& type) {
    size_t pos = 0;
    while (pos + 8 <= b.size()) {
        if (b.compare(pos + 4, 4, type) == 0) return pos;
        const uint64_t size = beAt(b, pos, 4);
        if (size < 8) break;
        pos += size;
    }
    return std::string::npos;
}

}  // namespace

std::string withCo64(const std::string& movie) {
    const std::string once = rewrite(movie, 0, movie.size(), 0);
    const int64_t shift = static_cast<int64_t>(topLevel(once, "mdat")) -
                          static_cast<int64_t>(topLevel(movie, "mdat"));
    return rewrite(movie, 0, movie.size(), shift);
}

}  // namespace testsupport
