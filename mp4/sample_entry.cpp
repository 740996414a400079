// Boxes placed in a video sample entry after its configuration box.
#include "mp4/sample_entry.h"

#include <algorithm>

#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

bool isVideoSampleEntry(FourCC type) {
    return type == fourcc("avc1") || type == fourcc("avc3") || type == fourcc("hvc1") || type == fourcc("hev1");
}

std::vector<ChildSpan> childSpans(const uint8_t* bytes, uint64_t size, uint64_t from, uint64_t& stoppedAt) {
    std::vector<ChildSpan> spans;
    uint64_t pos = from;
    while (pos < size && size - pos >= 8) {
        ChildSpan span;
        span.start = pos;
        span.size = readBE32(bytes + pos);
        std::copy(bytes + pos + 4, bytes + pos + 8, span.type.begin());
        if (span.size == 1) {
            if (size - pos < 16) break;
            span.size = readBE64(bytes + pos + 8);
            span.headerSize = 16;
        } else if (span.size == 0) {
            span.size = size - pos;
        }
        if (span.size < span.headerSize || span.size > size - pos) break;
        spans.push_back(span);
        pos += span.size;
    }
    stoppedAt = std::min(pos, size);
    return spans;
}

bool wholeBoxes(const ByteArray& bytes, std::vector<ChildSpan>& spans) {
    uint64_t stopped = 0;
    spans = childSpans(bytes.data, bytes.size, 0, stopped);
    return stopped == bytes.size;
}

bool placeAfterConfiguration(const uint8_t* entry, uint64_t size, const ByteArray& boxes, EntryRewrite& out) {
    std::vector<ChildSpan> added;
    if (boxes.empty() || !wholeBoxes(boxes, added)) return false;
    if (size < 8 + kVisualEntryFields) return false;
    const auto replaced = [&added](const FourCC& type) {
        return std::any_of(added.begin(), added.end(), [&type](const ChildSpan& a) { return a.type == type; });
    };
    uint64_t stopped = 0;
    std::vector<ChildSpan> children = childSpans(entry, size, 8 + kVisualEntryFields, stopped);
    // A box of ours that is cut off is dropped with whatever follows it.
    if (stopped < size && size - stopped >= 8) {
        ChildSpan tail;
        tail.start = stopped;
        tail.size = size - stopped;
        std::copy(entry + stopped + 4, entry + stopped + 8, tail.type.begin());
        if (replaced(tail.type)) children.push_back(tail);
    }
    const auto config = std::find_if(children.begin(), children.end(), [](const ChildSpan& c) {
        return c.type == fourcc("avcC") || c.type == fourcc("hvcC");
    });
    if (config == children.end()) return false;
    const uint64_t insertAt = config->end();
    uint64_t from = insertAt, to = insertAt;
    for (const ChildSpan& c : children) {
        if (!replaced(c.type)) continue;
        from = std::min(from, c.start);
        to = std::max(to, c.end());
    }
    out.from = from;
    out.to = to;
    out.bytes.clear();
    bool inserted = false;
    for (const ChildSpan& c : children) {
        if (c.start < from || c.end() > to) continue;
        if (!inserted && c.start >= insertAt) {
            out.bytes.append(boxes.data, boxes.size);
            inserted = true;
        }
        if (!replaced(c.type)) out.bytes.append(entry + c.start, c.size);
    }
    if (!inserted) out.bytes.append(boxes.data, boxes.size);
    return true;
}

BOX* Container::videoSampleEntry() {
    if (videoTrack_ == nullptr) return nullptr;
    BOX* entry = nullptr;
    static_cast<NestedBox&>(*videoTrack_).find("mdia.minf.stbl.stsd", [&entry](BOX& stsd) {
        if (entry != nullptr || !stsd.hasChild()) return false;
        for (const auto& child : static_cast<NestedBox&>(stsd).children) {
            if (isVideoSampleEntry(child->type)) {
                entry = child.get();
                break;
            }
        }
        return false;
    });
    return entry;
}

bool Container::readVideoSampleEntry(ByteArray& bytes, BOX** where) {
    bytes.clear();
    BOX* entry = videoSampleEntry();
    if (where != nullptr) *where = entry;
    if (entry == nullptr || entry->size > kMaxSampleEntry || heldEnd(*entry) != entry->end()) return false;
    bool complete = false;
    open([&](QVMX::FileIO& file) {
        if (entry->end() > file.length() || !file.seek_set(entry->start)) return;
        std::vector<uint8_t> buffer(static_cast<size_t>(entry->size));
        uint64_t done = 0;
        while (done < buffer.size()) {
            const uint64_t n = file.read(buffer.data() + done, buffer.size() - done);
            if (n == 0 || n == QVMX::FileIO::kError) break;
            done += n;
        }
        if (done == buffer.size()) complete = bytes.append(buffer.data(), buffer.size());
    });
    return complete;
}

bool Container::sampleEntryEdit(const ByteArray& boxes, BoxEdit& edit) {
    ByteArray bytes;
    BOX* entry = nullptr;
    if (!readVideoSampleEntry(bytes, &entry) || entry == nullptr) return false;
    EntryRewrite rewrite;
    if (!placeAfterConfiguration(bytes.data, bytes.size, boxes, rewrite)) return false;
    edit.from = entry->start + rewrite.from;
    edit.to = entry->start + rewrite.to;
    edit.bytes = std::move(rewrite.bytes);
    edit.anchor = entry->start;
    edit.holders = holdersFrom(*entry);
    return true;
}

}  // namespace MP4
