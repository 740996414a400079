#pragma once

// --shard K/N: which movies one of N cooperating runs takes. The choice
// depends on nothing but the movie's path inside its input, so runs on
// different machines agree without talking to each other.
#include <cstdint>
#include <string>
#include <string_view>

namespace batch {

struct Shard {
    unsigned index = 1;  // K, from 1
    unsigned count = 1;  // N
    bool whole() const { return count == 1; }
};

// "K/N" with 1 <= K <= N; false (shard untouched) for anything else.
bool parseShard(const std::string& text, Shard& shard);

// 64-bit FNV-1a: fixed across builds, compilers and machines.
uint64_t fnv1a64(std::string_view bytes);

// Whether the movie at this path (relative to its input) belongs to the shard.
bool inShard(std::string_view relativePath, const Shard& shard);

}  // namespace batch
