#pragma once

#include <string>
#include <vector>

#include "mp4/box.h"

// Movie, track and media headers and the handler box.
namespace MP4 {

// Times and durations are 64-bit in version 1 and 32-bit otherwise. Every
// field is kept as stored, so writing a parsed box gives back its bytes.
class MVHD : public BOX {
public:
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint64_t creationTime = 0;
    uint64_t modificationTime = 0;
    uint32_t ticksPerSecond = 0;
    uint64_t duration = 0;  // in ticks
    uint32_t rate = 0;      // 16.16
    uint16_t volume = 0;    // 8.8
    std::array<uint8_t, 10> reserved{};
    std::array<uint32_t, 9> matrix{};
    std::array<uint8_t, 24> preDefined{};
    uint32_t nextTrackId = 0;
    // Derived from the two above when parsed.
    float timeScale = 0;
    float durationSeconds = 0;
};

class TKHD : public BOX {
public:
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint64_t creationTime = 0;
    uint64_t modificationTime = 0;
    uint32_t trackId = 0;
    std::array<uint8_t, 4> reserved1{};
    uint64_t duration = 0;
    std::array<uint8_t, 8> reserved2{};
    uint16_t layer = 0;
    uint16_t alternateGroup = 0;
    uint16_t volume = 0;
    std::array<uint8_t, 2> reserved3{};
    std::array<uint32_t, 9> matrix{};
    uint32_t widthFixed = 0;  // 16.16 as stored
    uint32_t heightFixed = 0;
    // Whole pixels of the two above when parsed.
    uint32_t width = 0;
    uint32_t height = 0;
};

class MDHD : public BOX {
public:
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint64_t creationTime = 0;
    uint64_t modificationTime = 0;
    uint64_t duration = 0;
    uint32_t timeScale = 0;
    uint16_t language = 0;  // a pad bit and three 5-bit letters
    uint16_t preDefined = 0;
};

// Where a header's creation time lies, as its own description puts it:
// the offset in the payload (after the box header) and the bytes that say
// time there. False when the box is too small to hold the field.
struct FieldBytes {
    uint64_t offset = 0;
    std::vector<uint8_t> bytes;
};
bool creationTimeField(const MVHD& box, uint64_t time, FieldBytes& out);
bool creationTimeField(const TKHD& box, uint64_t time, FieldBytes& out);
bool creationTimeField(const MDHD& box, uint64_t time, FieldBytes& out);

class HDLR : public BOX {
public:
    using BOX::BOX;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool describe(Fields& f) override;
    // The four handler-type bytes ("vide", "soun", "mdir", ...).
    std::string handlerType() const;

    // version and flags, pre_defined, handler_type, 12 reserved bytes
    std::array<uint8_t, 24> fields{};
    std::string name;
};

// Reads version and flags (one byte, three bytes).
void readVersionAndFlags(BinFile& file, uint8_t& version, uint32_t& flags);

}  // namespace MP4
