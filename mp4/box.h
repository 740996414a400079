#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mp4/bin_file.h"

namespace MP4 {

using FourCC = std::array<uint8_t, 4>;
class Fields;

// Takes the box-tree dump one line at a time, each ending in "\n".
using DumpLine = std::function<void(const std::wstring& line)>;

constexpr FourCC fourcc(const char (&s)[5]) {
    return {uint8_t(s[0]), uint8_t(s[1]), uint8_t(s[2]), uint8_t(s[3])};
}

// Deepest nesting the parser descends into. Deeper containers are kept as
// plain boxes, so a hostile file cannot exhaust the stack.
constexpr uint32_t kMaxParseDepth = 48;

// One box of the tree: where it is in the file and how large it is. Plain
// boxes are kept by position and size only; their payload is never read.
class BOX {
public:
    // Reads one header at the file's position (a zero type marks the end of
    // a child list).
    BOX(BinFile& file, uint32_t depth, BOX* parent);
    // A box made by hand (root, built boxes).
    BOX(uint32_t depth, uint64_t start, uint64_t size, FourCC type, BOX* parent);
    // A typed box made from a header just read (inherited by every box class).
    struct Header {
        const BOX& box;
    };
    explicit BOX(Header header) : BOX(header.box) {}
    BOX(const BOX&) = default;
    BOX& operator=(const BOX&) = delete;
    virtual ~BOX() = default;

    virtual bool hasChild() const { return false; }
    // One line for this box, then those of the boxes inside it.
    virtual void dump(const DumpLine& out) const;
    virtual void parseBox(BinFile& file, uint64_t end);
    // Lists the box's own fields after its header, in order, for reading
    // and writing alike (see field_buffer.h); false for a box without such
    // a list, whose bytes are only ever copied.
    virtual bool describe(Fields& fields);
    // The described fields as written; empty for a box without a list.
    std::vector<uint8_t> describedBytes() const;

    // Rewrites the size field in place (8 bytes at start + 8 for a large
    // header, else the low 32 bits at start); the position is restored.
    bool writeSize(BinFile& file, uint64_t newSize) const;
    // Copies the box's bytes to the destination's current position.
    bool copyTo(QVMX::FileIO& from, QVMX::FileIO& to) const;

    std::string name() const;
    std::wstring wname() const;
    std::wstring basicTag() const;
    uint64_t end() const { return addClamped(start, size); }
    bool isType(FourCC t) const { return type == t; }
    // Size of the header as stored: 8, 16 for the large form.
    uint64_t headerSize() const { return largeSize ? 16 : 8; }

    uint32_t depth;
    uint64_t start;
    uint64_t size;
    FourCC type{};
    bool largeSize = false;
    BOX* parent;

protected:
    std::wstring indent() const;
    // Read limit for this box's own fields: min(box end, caller's end).
    void limitTo(BinFile& file, uint64_t end) const;
};

using BoxCallback = std::function<bool(BOX&)>;

// A box whose payload is a list of boxes, owned in file order.
class NestedBox : public BOX {
public:
    using BOX::BOX;

    bool hasChild() const override { return true; }
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    // Makes the typed object for a header just read; plain BOX by default.
    virtual std::unique_ptr<BOX> allocChild(BOX& header);

    // Path search: "moov.trak.tkhd" matched byte for byte from this box's
    // children. fn returning false stops the scan of that sibling list only.
    void find(const char* path, const BoxCallback& fn);
    void find(const std::string& path, const BoxCallback& fn) { find(path.c_str(), fn); }
    void if_not_found(const char* path, const std::function<void()>& fn);
    void if_not_found(const std::string& path, const std::function<void()>& fn) {
        if_not_found(path.c_str(), fn);
    }

    std::vector<std::unique_ptr<BOX>> children;

protected:
    // Reads the child list from the file's position on (limit min(start +
    // size, end)).
    void parseChildren(BinFile& file, uint64_t end);
    void dumpChildren(const DumpLine& out) const;
};

// A full box (version and flags) whose payload continues with child boxes.
class NestedBoxWithVersion : public NestedBox {
public:
    using NestedBox::NestedBox;
    void parseBox(BinFile& file, uint64_t end) override;

    std::array<uint8_t, 4> versionAndFlags{};
};

// Big-endian helpers for building box bytes in memory.
uint32_t readBE32(const uint8_t* p);
uint64_t readBE64(const uint8_t* p);

// The payload of a small box (after its header) read into out; false when
// it is larger than largest bytes, runs past the file or cannot be read.
bool readPayload(BinFile& file, const BOX& box, uint64_t largest, std::vector<uint8_t>& out);

}  // namespace MP4
