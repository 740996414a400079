#pragma once

#include <vector>

#include "mp4/box.h"

// Sample tables and the sound sample entry. Counts in these boxes are
// only believed as far as the bytes really present in the box.
namespace MP4 {

class STTS : public BOX {
public:
    struct Entry {
        uint32_t sampleCount;
        uint32_t sampleDelta;
    };
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint32_t entryCount = 0;
    std::vector<Entry> entries;
};

class STSC : public BOX {
public:
    struct Entry {
        uint32_t firstChunk;
        uint32_t samplesPerChunk;
        uint32_t sampleDescriptionIndex;
    };
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint32_t entryCount = 0;
    std::vector<Entry> entries;
};

class STSZ : public BOX {
public:
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint32_t sampleSize = 0;
    uint32_t sampleCount = 0;
    std::vector<uint32_t> sizes;
};

// Chunk offsets: only where the table starts is kept; the edits that shift
// offsets read and write the entries in the file, so the description stops
// at the entry count.
class STCO : public BOX {
public:
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;
    // Bytes per table entry: 4 here, 8 for co64.
    virtual uint32_t entryWidth() const { return 4; }

    uint8_t version = 0;
    uint32_t flags = 0;
    uint32_t entryCount = 0;
    uint64_t tableOffset = 0;
};

class CO64 : public STCO {
public:
    using STCO::STCO;
    uint32_t entryWidth() const override { return 8; }
};

// The raw-PCM ('sowt') sound sample entry: its fields, then child boxes.
class SOWT : public NestedBox {
public:
    using NestedBox::NestedBox;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;

    std::array<uint8_t, 6> reserved1{};
    uint16_t dataReferenceIndex = 0;
    std::array<uint8_t, 8> reserved2{};
    uint16_t channelCount = 0;
    uint16_t sampleSize = 0;
    uint16_t preDefined = 0;
    std::array<uint8_t, 2> reserved3{};
    uint32_t sampleRate = 0;  // 16.16 as stored
};

}  // namespace MP4
