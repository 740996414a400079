#pragma once

// Builds MP4 box bytes in memory, so tests make their fixture movies in code.
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace builders {

using Bytes = std::string;

Bytes be16(uint16_t v);
Bytes be32(uint32_t v);
Bytes be64(uint64_t v);

// size(32) type payload
Bytes box(const std::string& type, const Bytes& payload = {});
// size 1, type, largesize(64), payload
Bytes largeBox(const std::string& type, const Bytes& payload = {});
// a full box: version, 24-bit flags, payload
Bytes fullBox(const std::string& type, uint8_t version, uint32_t flags, const Bytes& payload = {});
// a box of the concatenated children
Bytes container(const std::string& type, std::initializer_list<Bytes> children);
Bytes uuidBox(const std::string& userType16, const Bytes& payload);
Bytes join(std::initializer_list<Bytes> parts);

// Typed boxes with their usual fields.
Bytes mvhd(uint8_t version, uint64_t creation, uint32_t timeScale, uint64_t duration);
Bytes tkhd(uint8_t version, uint64_t creation, uint32_t width, uint32_t height);
Bytes mdhd(uint8_t version, uint64_t creation, uint32_t timeScale, uint64_t duration);
Bytes hdlr(const std::string& handler, const std::string& name);
Bytes stts(const std::vector<std::pair<uint32_t, uint32_t>>& entries);
Bytes stsc(const std::vector<std::vector<uint32_t>>& entries);
Bytes stsz(uint32_t sampleSize, const std::vector<uint32_t>& sizes, uint32_t count = 0);
Bytes stco(const std::vector<uint32_t>& offsets);
Bytes co64(const std::vector<uint64_t>& offsets);
// An avc1 sample entry (78 bytes of visual fields) holding the given children.
Bytes avc1(uint16_t width, uint16_t height, std::initializer_list<Bytes> children);
// A sowt sound sample entry.
Bytes sowt(uint16_t channels, uint16_t sampleSize, uint32_t sampleRate16_16);
Bytes stsd(std::initializer_list<Bytes> entries);

// Description of a small synthetic movie whose samples are recognisable
// bytes: sample i of track t is filled with the byte (t * 64 + i) & 0xFF.
struct MovieShape {
    bool moovFirst = true;   // moov before mdat
    bool use64 = false;      // co64 instead of stco
    bool withAudio = true;   // a second (sound) track
    bool withUdta = true;
    uint32_t videoSamples = 6;
    uint32_t audioSamples = 4;
    uint32_t samplesPerChunk = 2;
    uint16_t width = 64;
    uint16_t height = 32;
    Bytes udtaChildren;      // extra udta content
    Bytes avcC;              // payload of an avcC box; none when empty
};

// The whole file, with chunk offsets that point at the samples.
Bytes buildMovie(const MovieShape& shape);
// The payload of every sample in file order per track, as the movie holds them.
// The same movie with its top-level boxes as layout lists them: "moov" is
// the movie box, each "mdat" (or "mdat64", with a 64-bit size) the next
// part of the media data (the chunks shared out evenly), anything else a
// box copied as it is.
Bytes buildLaidOutMovie(const MovieShape& shape, const std::vector<Bytes>& layout);
std::vector<Bytes> movieSamples(const MovieShape& shape);

}  // namespace builders
