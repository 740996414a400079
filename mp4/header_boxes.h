#pragma once

#include <string>

#include "mp4/box.h"

// Movie, track and media headers and the handler box.
namespace MP4 {

class MVHD : public BOX {
public:
    using BOX::BOX;
    void dump() const override;
    void parseBox(BinFile& file, uint64_t end) override;
    // Writes the creation time (64-bit for version 1, else the low 32 bits).
    bool setTimeStamp(BinFile& file, uint64_t time) const;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint64_t creationTime = 0;
    float timeScale = 0;
    float durationSeconds = 0;
};

class TKHD : public BOX {
public:
    using BOX::BOX;
    void dump() const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool setTimeStamp(BinFile& file, uint64_t time) const;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint64_t creationTime = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

class MDHD : public BOX {
public:
    using BOX::BOX;
    void dump() const override;
    void parseBox(BinFile& file, uint64_t end) override;
    bool setTimeStamp(BinFile& file, uint64_t time) const;

    uint8_t version = 0;
    uint32_t flags = 0;
    uint64_t creationTime = 0;
    uint64_t duration = 0;
    uint32_t timeScale = 0;
};

class HDLR : public BOX {
public:
    using BOX::BOX;
    void dump() const override;
    void parseBox(BinFile& file, uint64_t end) override;
    // The four handler-type bytes ("vide", "soun", "mdir", ...).
    std::string handlerType() const;

    // version and flags, pre_defined, handler_type, 12 reserved bytes
    std::array<uint8_t, 24> fields{};
    std::string name;
};

// Reads version and flags (one byte, three bytes).
void readVersionAndFlags(BinFile& file, uint8_t& version, uint32_t& flags);

}  // namespace MP4
