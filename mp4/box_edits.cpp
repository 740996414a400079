#include "mp4/box_edits.h"

#include <algorithm>
#include <map>

#include "mp4/byte_copy.h"

namespace MP4 {

uint64_t heldEnd(const BOX& box) {
    uint64_t end = box.end();
    for (const BOX* p = box.parent; p != nullptr; p = p->parent) end = std::min(end, p->end());
    return end;
}

std::vector<BoxSpan> holdersFrom(const BOX& box) {
    std::vector<BoxSpan> spans;
    for (const BOX* b = &box; b != nullptr && b->parent != nullptr; b = b->parent) {
        spans.push_back({b->start, b->size, b->largeSize});
    }
    return spans;
}

uint64_t movedOffset(const std::vector<BoxEdit>& edits, uint64_t offset) {
    int64_t shift = 0;
    for (const auto& e : edits) {
        if (e.to <= offset) shift += e.delta();
    }
    return offset + static_cast<uint64_t>(shift);
}

bool editsFit(const std::vector<BoxEdit>& edits, uint64_t length) {
    uint64_t cursor = 0;
    for (const auto& e : edits) {
        if (e.from < cursor || e.to < e.from || e.to > length) return false;
        // A box whose declared size runs past its parent cannot take an edit
        // at its end without breaking the parent.
        for (const auto& h : e.holders) {
            if (e.from <= h.start || h.size > length - h.start || e.to > h.start + h.size) {
                return false;
            }
        }
        cursor = e.to;
    }
    return true;
}

bool copyWithEdits(BinFile& source, BinFile& destination, const std::vector<BoxEdit>& edits,
                   uint64_t& position) {
    const uint64_t length = source.length();
    if (!editsFit(edits, length)) return false;
    uint64_t cursor = 0;
    bool first = true;
    for (const auto& e : edits) {
        if (!source.seek_set(cursor)) return false;
        if (copyBytes(source, destination, e.from - cursor) != e.from - cursor) return false;
        if (first) position = destination.position();
        first = false;
        if (!destination.writeBytes(e.bytes.data, e.bytes.size)) return false;
        cursor = e.to;
    }
    if (first) position = length;
    if (!source.seek_set(cursor)) return false;
    return copyBytes(source, destination, length - cursor) == length - cursor;
}

bool resizeHolders(BinFile& file, const std::vector<BoxEdit>& edits) {
    return resizeHolders(file, edits, [&edits](uint64_t offset) { return movedOffset(edits, offset); });
}

bool resizeHolders(BinFile& file, const std::vector<BoxEdit>& edits,
                   const std::function<uint64_t(uint64_t)>& where) {
    struct Change {
        BoxSpan span;
        int64_t delta = 0;
    };
    std::map<uint64_t, Change> changes;
    for (const auto& e : edits) {
        for (const auto& h : e.holders) {
            auto& c = changes[h.start];
            c.span = h;
            c.delta += e.delta();
        }
    }
    // Check every new size before the first write.
    std::vector<std::pair<const Change*, uint64_t>> sizes;
    for (const auto& [start, c] : changes) {
        const uint64_t header = c.span.largeSize ? 16 : 8;
        uint64_t size;
        if (c.delta >= 0) {
            if (__builtin_add_overflow(c.span.size, static_cast<uint64_t>(c.delta), &size)) return false;
        } else {
            const uint64_t cut = static_cast<uint64_t>(-(c.delta + 1)) + 1;
            if (cut > c.span.size) return false;
            size = c.span.size - cut;
        }
        if (size < header) return false;
        if (!c.span.largeSize && size > 0xFFFFFFFFull) return false;
        sizes.emplace_back(&c, size);
    }
    for (const auto& [c, size] : sizes) {
        const uint64_t at = where(c->span.start);
        file.seek(c->span.largeSize ? at + 8 : at);
        const bool ok = c->span.largeSize ? file.write64(size)
                                          : file.write32(static_cast<uint32_t>(size));
        if (!ok) return false;
    }
    return true;
}

bool Relayout::assign(const std::vector<const BOX*>& order, const std::vector<BoxEdit>& edits) {
    pieces.clear();
    tail.clear();
    uint64_t sourceEnd = 0;
    for (const BOX* box : order) sourceEnd = std::max(sourceEnd, box->end());
    // An edit belongs to its outermost holder; one without holders (a patch
    // of bytes, a box appended at the top level) to the box it lies in, or
    // to the tail when it is an insertion at the end of the file.
    auto owner = [](const BoxEdit& e, const BOX* box) {
        if (!e.holders.empty()) return e.holders.back().start == box->start;
        return box->start <= e.from && e.from < box->end() && e.to <= box->end();
    };
    uint64_t at = 0;
    for (const BOX* box : order) {
        Piece piece{box, {}, at};
        int64_t growth = 0;
        for (const auto& e : edits) {
            if (owner(e, box)) {
                piece.edits.push_back(&e);
                growth += e.delta();
            }
        }
        pieces.push_back(std::move(piece));
        at += box->size + static_cast<uint64_t>(growth);
    }
    for (const auto& e : edits) {
        if (e.holders.empty() && e.from == sourceEnd && e.to == sourceEnd) tail.push_back(&e);
    }
    size_t assigned = tail.size();
    for (const auto& p : pieces) assigned += p.edits.size();
    return assigned == edits.size();
}

uint64_t Relayout::where(uint64_t offset) const {
    uint64_t to = offset;
    return find(offset, to) ? to : offset;
}

bool Relayout::find(uint64_t offset, uint64_t& to) const {
    for (const auto& p : pieces) {
        if (offset < p.box->start || offset >= p.box->end()) continue;
        int64_t shift = 0;
        for (const BoxEdit* e : p.edits) {
            if (e->to <= offset) shift += e->delta();
        }
        to = p.newStart + (offset - p.box->start) + static_cast<uint64_t>(shift);
        return true;
    }
    return false;
}

bool Relayout::copy(BinFile& source, BinFile& destination) const {
    const uint64_t length = source.length();
    for (const auto& p : pieces) {
        const uint64_t start = p.box->start;
        const uint64_t end = p.box->end();
        if (end > length) return false;
        uint64_t cursor = start;
        for (const BoxEdit* e : p.edits) {
            if (e->from < cursor || e->to < e->from || e->to > end) return false;
            if (!source.seek_set(cursor) || copyBytes(source, destination, e->from - cursor) != e->from - cursor) {
                return false;
            }
            if (!destination.writeBytes(e->bytes.data, e->bytes.size)) return false;
            cursor = e->to;
        }
        if (!source.seek_set(cursor) || copyBytes(source, destination, end - cursor) != end - cursor) return false;
    }
    for (const BoxEdit* e : tail) {
        if (!destination.writeBytes(e->bytes.data, e->bytes.size)) return false;
    }
    return true;
}

}  // namespace MP4
