#include "mp4/box.h"

#include <algorithm>
#include <cwchar>

#include "foundation/wide_format.h"
#include "mp4/byte_copy.h"
#include "mp4/field_buffer.h"

namespace MP4 {

BOX::BOX(BinFile& file, uint32_t depth_, BOX* parent_)
    : depth(depth_), start(file.position()), size(0), parent(parent_) {
    size = file.read32();
    uint8_t t[4] = {0, 0, 0, 0};
    if (file.remaining() >= 4) file.readBytes(t, 4);
    std::copy(t, t + 4, type.begin());
    if (size == 1) {
        largeSize = true;
        size = file.read64();
    } else if (size == 0) {
        const uint64_t length = file.length();
        size = length > start ? length - start : 0;
    }
}

BOX::BOX(uint32_t depth_, uint64_t start_, uint64_t size_, FourCC type_, BOX* parent_)
    : depth(depth_), start(start_), size(size_), type(type_), parent(parent_) {}

void BOX::parseBox(BinFile&, uint64_t) {}

bool BOX::describe(Fields&) { return false; }

std::vector<uint8_t> BOX::describedBytes() const {
    std::vector<uint8_t> out;
    Fields fields = Fields::into(out);
    // Writing only reads the members it is handed.
    const_cast<BOX*>(this)->describe(fields);
    return out;
}

void BOX::limitTo(BinFile& file, uint64_t end_) const { file.setLimit(std::min(end(), end_)); }

std::string BOX::name() const {
    std::string s;
    for (uint8_t c : type) {
        if (c == 0) break;
        s.push_back(static_cast<char>(c));
    }
    return s;
}

std::wstring BOX::wname() const {
    std::wstring s;
    for (uint8_t c : type) {
        if (c == 0) break;
        s.push_back(static_cast<wchar_t>(c));  // 0xA9 shows as the copyright sign
    }
    return s;
}

std::wstring BOX::basicTag() const {
    wchar_t buffer[256];
    std::swprintf(buffer, 256, L"'%ls': start=%llu bytes=%llu", wname().c_str(),
                  static_cast<unsigned long long>(start), static_cast<unsigned long long>(size));
    std::wstring tag(buffer);
    if (tag.size() > 63) tag.resize(63);
    return tag;
}

std::wstring BOX::indent() const {
    // The root's depth is all ones; its children print flush left.
    if (depth == ~uint32_t(0)) return {};
    return std::wstring(static_cast<size_t>(std::min<uint32_t>(depth, 1024)) * 4, L' ');
}

void BOX::dump(const DumpLine& out) const {
    if (type == FourCC{0, 0, 0, 0}) {
        out(QVMX::format(L"MP4: %ls== EOF total=%lld ==\n", indent().c_str(),
                         static_cast<long long>(start)));
        return;
    }
    out(QVMX::format(L"MP4: %ls<%ls >\n", indent().c_str(), basicTag().c_str()));
}

bool BOX::writeSize(BinFile& file, uint64_t newSize) const {
    const uint64_t saved = file.position();
    bool ok;
    if (largeSize) {
        file.seek(start + 8);
        ok = file.write64(newSize);
    } else {
        file.seek(start);
        ok = file.write32(static_cast<uint32_t>(newSize));
    }
    file.seek(saved);
    return ok;
}

bool BOX::copyTo(QVMX::FileIO& from, QVMX::FileIO& to) const {
    if (!from.seek_set(start)) return false;
    return copyBytes(from, to, size) == size;
}

void NestedBox::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls children=%lu >\n", indent().c_str(), basicTag().c_str(),
                     static_cast<unsigned long>(children.size())));
    dumpChildren(out);
}

void NestedBox::dumpChildren(const DumpLine& out) const {
    for (const auto& child : children) child->dump(out);
}

std::unique_ptr<BOX> NestedBox::allocChild(BOX& header) { return std::make_unique<BOX>(header); }

void NestedBox::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    parseChildren(file, end_);
}

void NestedBox::parseChildren(BinFile& file, uint64_t outerEnd) {
    // Children are read no further than this box's own end, so a child that
    // claims more than its parent holds is cut there.
    const uint64_t end_ = std::min(end(), outerEnd);
    limitTo(file, end_);
    const uint32_t childDepth = depth + 1;  // the root's all-ones depth wraps to 0
    auto header = std::make_unique<BOX>(file, childDepth, this);
    while (header->type != FourCC{0, 0, 0, 0}) {
        std::unique_ptr<BOX> child;
        if (childDepth < kMaxParseDepth) {
            child = allocChild(*header);
        } else {
            child = std::move(header);
        }
        child->parseBox(file, end_);
        const uint64_t next = child->end();
        const bool stuck = child->size == 0;  // a 64-bit size of 0 never moves on
        children.push_back(std::move(child));
        if (stuck || next >= std::min(end(), end_)) break;
        file.seek(next);
        limitTo(file, end_);
        header = std::make_unique<BOX>(file, childDepth, this);
    }
}

void NestedBoxWithVersion::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    file.readBytes(versionAndFlags.data(), 4);
    parseChildren(file, end_);
}

namespace {

bool typeMatches(const BOX& box, const char* path) {
    for (int i = 0; i < 4; ++i) {
        if (path[i] == '\0' && i < 4) return false;
        if (static_cast<uint8_t>(path[i]) != box.type[static_cast<size_t>(i)]) return false;
    }
    return true;
}

}  // namespace

void NestedBox::find(const char* path, const BoxCallback& fn) {
    for (auto& child : children) {
        if (!typeMatches(*child, path)) continue;
        if (path[4] == '\0') {
            if (!fn(*child)) return;
        } else if (path[4] == '.' && child->hasChild()) {
            static_cast<NestedBox&>(*child).find(path + 5, fn);
        }
    }
}

void NestedBox::if_not_found(const char* path, const std::function<void()>& fn) {
    bool found = false;
    find(path, [&found](BOX&) {
        found = true;
        return true;
    });
    if (!found) fn();
}

bool readPayload(BinFile& file, const BOX& box, uint64_t largest, std::vector<uint8_t>& out) {
    const uint64_t header = box.headerSize();
    if (box.size < header || box.size - header > largest || box.end() > file.length()) return false;
    out.resize(static_cast<size_t>(box.size - header));
    file.setLimit(BinFile::kNoLimit);
    file.seek(box.start + header);
    return file.readBytes(out.data(), out.size());
}

uint32_t readBE32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

uint64_t readBE64(const uint8_t* p) { return (uint64_t(readBE32(p)) << 32) | readBE32(p + 4); }

}  // namespace MP4
