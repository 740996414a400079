#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "foundation/byte_array.h"
#include "foundation/file_io.h"
#include "mp4/bin_file.h"
#include "mp4/box.h"

// Rewrites described as byte-range edits of a source file, together with the
// boxes whose sizes change with them. Everything is taken from the source
// tree before the copy starts, so several edits can go into one rewrite.
namespace MP4 {

// Where a box's header is and what it says.
struct BoxSpan {
    uint64_t start = 0;
    uint64_t size = 0;
    bool largeSize = false;
};

// Bytes of another file, copied rather than held: content too large for
// memory (a block of audio), then a few bytes more.
struct BorrowedBytes {
    std::shared_ptr<QVMX::FileIO> file;
    uint64_t offset = 0;
    uint64_t size = 0;
    ByteArray after;
};

// The source bytes [from, to) give way to bytes (from == to inserts), and
// to the borrowed ones after them.
struct BoxEdit {
    uint64_t from = 0;
    uint64_t to = 0;
    ByteArray bytes;
    std::optional<BorrowedBytes> borrowed;
    // The chunk offsets of tables inside what the edit writes are those of
    // the new file already: the commit leaves them alone.
    bool settled = false;
    // Fills in bytes (their length stays) when the copy writes them: for
    // bytes made while the copy runs. False fails the copy.
    std::function<bool(ByteArray& bytes)> complete;
    // Start of the box the edit is made at: media data lying after it moves.
    uint64_t anchor = 0;
    // The boxes that hold the edit, innermost first; each changes size by delta().
    std::vector<BoxSpan> holders;

    // How many bytes the edit writes.
    uint64_t length() const { return bytes.size + (borrowed ? borrowed->size + borrowed->after.size : 0); }
    int64_t delta() const { return static_cast<int64_t>(length()) - static_cast<int64_t>(to - from); }
};

// Media data keeps its offset modulo this many bytes through every copy the
// edits make: the copy then goes page by page, and where the file system can
// share blocks between files it need not copy them at all.
constexpr uint64_t kMediaAlignment = 4096;
// The largest free box that padding ever takes: a shift of 1..7 bytes needs
// a page more, no box being shorter than its 8-byte header.
constexpr uint64_t kLargestPadding = kMediaAlignment + 7;

// Size of the free box that puts a box bound for landing back at its source
// offset modulo kMediaAlignment: 0 when it already is there, else 8..4103.
uint64_t alignmentPadding(uint64_t source, uint64_t landing);

// A top-level free box of size bytes (8..kLargestPadding).
ByteArray freeBox(uint64_t size);

// Whether box can serve as the padding in front of the box that follows it:
// a free box small enough to be padding that no edit touches.
bool isPaddingSlot(const BOX& box, const std::vector<BoxEdit>& edits);

// Adds to edits (sorted by from) what keeps every top-level media data box
// of root that moves at its offset modulo kMediaAlignment: a free box right
// in front of it. One that is there already is resized or taken out rather
// than another added, so editing an output again does not grow it.
void alignMediaData(const NestedBox& root, std::vector<BoxEdit>& edits);

// Writes what the edit puts in place of its source bytes.
bool writeEdit(BinFile& destination, const BoxEdit& edit);

// Where the bytes of the settled edits land in the new file, the edits
// sorted by from and made in place (no relayout).
std::vector<std::pair<uint64_t, uint64_t>> settledRanges(const std::vector<BoxEdit>& edits);

// The end of a box as far as every box above it really holds it.
uint64_t heldEnd(const BOX& box);

// box itself and every box above it, the root excluded (it has no header).
std::vector<BoxSpan> holdersFrom(const BOX& box);

// Where the byte at a source offset lies once the edits are made.
uint64_t movedOffset(const std::vector<BoxEdit>& edits, uint64_t offset);

// Sorted by from, not overlapping, inside a file of length bytes, and each
// inside every box that holds it.
bool editsFit(const std::vector<BoxEdit>& edits, uint64_t length);

// Writes the source with the edits made; position = where the first edit's
// bytes went.
bool copyWithEdits(BinFile& source, BinFile& destination, const std::vector<BoxEdit>& edits,
                   uint64_t& position);

// In the new file, rewrites the size field of every box that holds an edit.
// False (nothing more written) when a size would fall below its header or
// no longer fit its field. where maps a source offset to the new file's
// (movedOffset when the boxes keep their order).
bool resizeHolders(BinFile& file, const std::vector<BoxEdit>& edits);
bool resizeHolders(BinFile& file, const std::vector<BoxEdit>& edits,
                   const std::function<uint64_t(uint64_t)>& where);

// The top-level boxes of a new file in the order they are written, each with
// the edits that lie inside it (an edit belongs to its outermost holder).
struct Relayout {
    struct Piece {
        const BOX* box = nullptr;
        std::vector<const BoxEdit*> edits;
        uint64_t newStart = 0;
        // Size of the free box written right in front of the box (0: none).
        uint64_t padding = 0;
    };
    std::vector<Piece> pieces;
    // Insertions at the end of the source, written after every piece.
    std::vector<const BoxEdit*> tail;

    // False when an edit lies in no box of the order and is no insertion at
    // the end of the source. Every media data box keeps its offset modulo
    // kMediaAlignment (alignMediaData), a free box that was right in front
    // of one that moves going with it as its padding.
    bool assign(const std::vector<const BOX*>& order, const std::vector<BoxEdit>& edits);
    // Where a source offset inside one of the pieces lands; the offset itself
    // when it is in none.
    uint64_t where(uint64_t offset) const;
    // The same, false when the offset lies in none of the pieces.
    bool find(uint64_t offset, uint64_t& to) const;
    bool copy(BinFile& source, BinFile& destination) const;
};

}  // namespace MP4
