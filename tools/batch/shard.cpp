#include "tools/batch/shard.h"

#include <charconv>

namespace batch {

namespace {

bool parseCount(std::string_view text, unsigned& value) {
    if (text.empty() || text.front() == '+' || text.front() == '-') return false;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

bool parseShard(const std::string& text, Shard& shard) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos) return false;
    Shard parsed;
    const std::string_view all(text);
    if (!parseCount(all.substr(0, slash), parsed.index) || !parseCount(all.substr(slash + 1), parsed.count)) return false;
    if (parsed.count == 0 || parsed.index == 0 || parsed.index > parsed.count) return false;
    shard = parsed;
    return true;
}

uint64_t fnv1a64(std::string_view bytes) {
    uint64_t hash = 0xcbf29ce484222325ull;
    for (const char c : bytes) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 0x100000001b3ull;
    }
    return hash;
}

bool inShard(std::string_view relativePath, const Shard& shard) {
    return fnv1a64(relativePath) % shard.count == shard.index - 1;
}

}  // namespace batch
