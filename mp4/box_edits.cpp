#include "mp4/box_edits.h"

#include <algorithm>
#include <map>

#include "mp4/byte_copy.h"

namespace MP4 {

uint64_t alignmentPadding(uint64_t source, uint64_t landing) {
    // Unsigned arithmetic wraps modulo 2^64, a multiple of the alignment.
    const uint64_t gap = (source - landing) % kMediaAlignment;
    if (gap == 0) return 0;
    return gap < 8 ? gap + kMediaAlignment : gap;
}

ByteArray freeBox(uint64_t size) {
    ByteArray box;
    if (size < 8 || size > kLargestPadding) return box;
    const std::vector<uint8_t> zeros(static_cast<size_t>(size - 8), 0);
    box.append32be(static_cast<uint32_t>(size));
    box.append("free");
    box.append(zeros.data(), zeros.size());
    return box;
}

bool isPaddingSlot(const BOX& box, const std::vector<BoxEdit>& edits) {
    if (!box.isType(fourcc("free")) || box.largeSize || box.size < 8 || box.size > kLargestPadding) return false;
    const uint64_t end = box.end();
    // An insertion at its start belongs to the box before it; one at its
    // end would come between the padding and what it pads.
    return std::none_of(edits.begin(), edits.end(), [&box, end](const BoxEdit& e) {
        return (e.from < end && e.to > box.start) || (e.from == e.to && e.from > box.start && e.from <= end);
    });
}

namespace {

// Among edits sorted by from: after the insertions at the same point (they
// belong to the box in front) and before a replacement starting there.
void insertSorted(std::vector<BoxEdit>& edits, BoxEdit edit) {
    const auto at = std::find_if(edits.begin(), edits.end(), [&edit](const BoxEdit& e) {
        return e.from > edit.from || (e.from == edit.from && e.to > e.from);
    });
    edits.insert(at, std::move(edit));
}

bool isMediaData(const BOX& box) { return box.isType(fourcc("mdat")); }

// Boxes of a fragmented movie that locate what follows them by distance: a
// segment index (sidx, ssix) counts from its own end to the fragments it
// lists, and the segment's type and messages come before it.
bool leadsFragment(const BOX& box) {
    static constexpr FourCC kTypes[] = {fourcc("sidx"), fourcc("ssix"), fourcc("styp"), fourcc("prft"),
                                        fourcc("emsg")};
    return std::any_of(std::begin(kTypes), std::end(kTypes), [&box](FourCC t) { return box.isType(t); });
}

// Where the padding of media data at(media) goes, as an index into the
// same sequence: right in front of it, or in front of the movie fragment
// (moof) right before it, whose run offsets count from the fragment's start,
// and of the segment boxes right before that, whose distances to the
// fragment must stay.
template <class At>
size_t paddedHead(size_t media, const At& at) {
    auto adjoins = [&at](size_t k) { return at(k - 1) != nullptr && at(k - 1)->end() == at(k)->start; };
    size_t head = media;
    if (head == 0 || !adjoins(head) || !at(head - 1)->isType(fourcc("moof"))) return head;
    --head;
    while (head > 0 && adjoins(head) && leadsFragment(*at(head - 1))) --head;
    return head;
}

}  // namespace

void alignMediaData(const NestedBox& root, std::vector<BoxEdit>& edits) {
    const auto& boxes = root.children;
    for (size_t i = 0; i < boxes.size(); ++i) {
        const BOX& box = *boxes[i];
        if (!isMediaData(box)) continue;
        const uint64_t start = box.start;
        // Media data an edit takes out or writes over is not kept in place.
        const bool overwritten = std::any_of(edits.begin(), edits.end(), [&box, start](const BoxEdit& e) {
            return (e.from < start && start < e.to) || (e.from == start && e.to > start && e.to >= box.end());
        });
        if (overwritten) continue;
        const uint64_t landing = movedOffset(edits, start);
        if (landing == start) continue;
        const size_t f = paddedHead(i, [&boxes](size_t k) { return boxes[k].get(); });
        const BOX& front = *boxes[f];
        const BOX* slot = f > 0 ? boxes[f - 1].get() : nullptr;
        if (slot != nullptr && (slot->end() != front.start || !isPaddingSlot(*slot, edits))) slot = nullptr;
        const uint64_t padding = alignmentPadding(start, landing - (slot != nullptr ? slot->size : 0));
        if (slot != nullptr ? slot->size == padding : padding == 0) continue;  // already right
        BoxEdit pad;
        pad.from = pad.anchor = slot != nullptr ? slot->start : front.start;
        pad.to = slot != nullptr ? slot->end() : front.start;
        if (padding > 0) pad.bytes = freeBox(padding);
        insertSorted(edits, std::move(pad));
    }
}

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

bool writeEdit(BinFile& destination, const BoxEdit& edit) {
    if (edit.complete) {
        ByteArray bytes = edit.bytes;
        if (!edit.complete(bytes) || bytes.size != edit.bytes.size) return false;
        if (!destination.writeBytes(bytes.data, bytes.size)) return false;
    } else if (!destination.writeBytes(edit.bytes.data, edit.bytes.size)) {
        return false;
    }
    if (!edit.borrowed) return true;
    const BorrowedBytes& b = *edit.borrowed;
    return b.file && b.file->seek_set(b.offset) && copyBytes(*b.file, destination, b.size) == b.size &&
           destination.writeBytes(b.after.data, b.after.size);
}

std::vector<std::pair<uint64_t, uint64_t>> settledRanges(const std::vector<BoxEdit>& edits) {
    std::vector<std::pair<uint64_t, uint64_t>> ranges;
    int64_t shift = 0;
    for (const auto& e : edits) {
        const uint64_t at = e.from + static_cast<uint64_t>(shift);
        if (e.settled) ranges.emplace_back(at, at + e.length());
        shift += e.delta();
    }
    return ranges;
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
        if (!writeEdit(destination, e)) return false;
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
    std::vector<Piece> all;
    std::vector<int64_t> growth;
    for (const BOX* box : order) {
        Piece piece{box, {}, 0, 0};
        int64_t g = 0;
        for (const auto& e : edits) {
            if (owner(e, box)) {
                piece.edits.push_back(&e);
                g += e.delta();
            }
        }
        all.push_back(std::move(piece));
        growth.push_back(g);
    }
    for (const auto& e : edits) {
        if (e.holders.empty() && e.from == sourceEnd && e.to == sourceEnd) tail.push_back(&e);
    }
    size_t assigned = tail.size();
    for (const auto& p : all) assigned += p.edits.size();

    // A free box right in front of media data that moves (unpadded) goes
    // with it as its padding.
    const size_t n = all.size();
    auto box = [&all](size_t k) { return all[k].box; };
    // For each piece that heads the boxes moving with media data: which.
    std::vector<size_t> paddedFor(n, n);
    for (size_t j = 0; j < n; ++j) {
        if (!isMediaData(*all[j].box)) continue;
        const size_t head = paddedHead(j, box);
        if (paddedFor[head] == n) paddedFor[head] = j;
    }
    std::map<uint64_t, size_t> slots;  // by where they end in the source
    for (size_t k = 0; k < n; ++k) {
        if (all[k].edits.empty() && isPaddingSlot(*all[k].box, edits)) slots[all[k].box->end()] = k;
    }
    std::vector<bool> dropped(n, false);
    uint64_t at = 0;
    for (size_t i = 0; i < n; ++i) {
        const BOX* media = all[i].box;
        if (isMediaData(*media) && at != media->start) {
            const auto slot = slots.find(all[paddedHead(i, box)].box->start);
            if (slot != slots.end()) dropped[slot->second] = true;
        }
        at += media->size + static_cast<uint64_t>(growth[i]);
    }
    at = 0;
    for (size_t i = 0; i < n; ++i) {
        if (dropped[i]) continue;
        Piece& p = all[i];
        // The media data this piece is padded for: its own, or that of the
        // fragment it heads.
        const size_t media = paddedFor[i];
        if (media < n) {
            const Piece& m = all[media];
            uint64_t into = 0;
            for (size_t k = i; k < media; ++k) into += all[k].box->size + static_cast<uint64_t>(growth[k]);
            // Insertions at its start are written in front of its header.
            for (const BoxEdit* e : m.edits) {
                if (e->to <= m.box->start) into += static_cast<uint64_t>(e->delta());
            }
            p.padding = alignmentPadding(m.box->start, at + into);
            at += p.padding;
        }
        p.newStart = at;
        at += p.box->size + static_cast<uint64_t>(growth[i]);
        pieces.push_back(std::move(p));
    }
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
        if (p.padding > 0) {
            const ByteArray padding = freeBox(p.padding);
            if (padding.size != p.padding || !destination.writeBytes(padding.data, padding.size)) return false;
        }
        uint64_t cursor = start;
        for (const BoxEdit* e : p.edits) {
            if (e->from < cursor || e->to < e->from || e->to > end) return false;
            if (!source.seek_set(cursor) || copyBytes(source, destination, e->from - cursor) != e->from - cursor) {
                return false;
            }
            if (!writeEdit(destination, *e)) return false;
            cursor = e->to;
        }
        if (!source.seek_set(cursor) || copyBytes(source, destination, end - cursor) != end - cursor) return false;
    }
    for (const BoxEdit* e : tail) {
        if (!writeEdit(destination, *e)) return false;
    }
    return true;
}

}  // namespace MP4
