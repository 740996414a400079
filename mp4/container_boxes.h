#pragma once

#include "mp4/box.h"

// Boxes that only hold other boxes. Which typed child each one makes is the
// table in child_table.cpp.
namespace MP4 {

class ROOT : public NestedBox {
public:
    ROOT(uint64_t size);
    void dump(const DumpLine& out) const override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

#define TAVREL_NESTED_BOX(Name, Base)                              \
    class Name : public Base {                                     \
    public:                                                        \
        using Base::Base;                                          \
        std::unique_ptr<BOX> allocChild(BOX& header) override;     \
    };

TAVREL_NESTED_BOX(MOOV, NestedBox)
TAVREL_NESTED_BOX(TRAK, NestedBox)
TAVREL_NESTED_BOX(MDIA, NestedBox)
TAVREL_NESTED_BOX(MINF, NestedBox)
TAVREL_NESTED_BOX(STBL, NestedBox)
TAVREL_NESTED_BOX(UDTA, NestedBox)
TAVREL_NESTED_BOX(META, NestedBoxWithVersion)
#undef TAVREL_NESTED_BOX

// Sample descriptions: version, flags and an entry count before the entries.
class STSD : public NestedBoxWithVersion {
public:
    using NestedBoxWithVersion::NestedBoxWithVersion;
    void parseBox(BinFile& file, uint64_t end) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;

    uint32_t entryCount = 0;
};

// The H.264 visual sample entry: 78 bytes of fields, then child boxes.
class AVC1 : public NestedBox {
public:
    using NestedBox::NestedBox;
    void parseBox(BinFile& file, uint64_t end) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

class FTYP : public BOX {
public:
    using BOX::BOX;
};

class MDAT : public BOX {
public:
    using BOX::BOX;
};

}  // namespace MP4
