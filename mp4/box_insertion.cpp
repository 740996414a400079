// Rewrites that put new bytes into the box tree: after a box, in its place,
// or as a new user-data box of the movie.
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "mp4/box_edits.h"
#include "mp4/byte_copy.h"
#include "mp4/container.h"

namespace MP4 {

QVMX::Status Container::alone(const std::function<QVMX::Status()>& record) {
    beginEdits();
    QVMX::Status recorded = record();
    if (!recorded) {
        batching_ = relayout_ = false;
        batch_.clear();
        return recorded;
    }
    return commitEdits();
}

void Container::beginEdits() {
    batching_ = true;
    relayout_ = false;
    batch_.clear();
    batchName_.clear();
}

QVMX::Status Container::commitEdits(const std::wstring& target) {
    batching_ = false;
    std::vector<BoxEdit> edits = std::move(batch_);
    batch_.clear();
    const bool relayout = relayout_;
    relayout_ = false;
    target_ = target;
    QVMX::Status committed;
    if (relayout) {
        committed = relayoutWithEdits(batchName_, edits);
    } else if (!edits.empty()) {
        committed = applyEdits(batchName_, edits);
    } else if (!target.empty()) {
        committed = copyInto(target);
    }
    target_.clear();
    return committed;
}

bool Container::isBeingRemoved(const BOX& box) const {
    return std::any_of(batch_.begin(), batch_.end(), [&box](const BoxEdit& e) {
        return e.length() == 0 && e.from <= box.start && box.end() <= e.to && e.from < e.to;
    });
}

QVMX::Status Container::applyEdits(const std::wstring& name, std::vector<BoxEdit>& edits) {
    if (batching_) {
        batchName_ += (batchName_.empty() ? L"" : L"+") + name;
        for (auto& e : edits) batch_.push_back(std::move(e));
        return {};
    }
    // Stable: of two insertions at one point, the one listed first (the
    // deeper box's) comes first.
    std::stable_sort(edits.begin(), edits.end(),
              [](const BoxEdit& a, const BoxEdit& b) { return a.from < b.from; });
    // Media data that moves keeps its place within a page: the copy then
    // goes page by page or shares the source's blocks.
    if (root_) alignMediaData(*root_, edits);
    const CopyFn copy = [&edits](BinFile& source, BinFile& destination, uint64_t& position) {
        return copyWithEdits(source, destination, edits, position);
    };
    const FixFn grow = [&edits](Container&, BinFile& file) { return resizeHolders(file, edits); };
    // Every chunk offset moves with the bytes it points at.
    std::vector<ByteRange> settled;
    for (const auto& [from, to] : settledRanges(edits)) settled.push_back({from, to});
    const FixFn shift = [&edits, &settled](Container& fixed, BinFile& file) {
        const OffsetMap where = [&edits](uint64_t from, uint64_t& to) {
            to = movedOffset(edits, from);
            return true;
        };
        return fixed.followChunks(file, where, settled);
    };
    return modifyContainer(name, copy, grow, shift);
}

QVMX::Status Container::replaceUdta(uint64_t size, const ByteArray& bytes) {
    // The bytes must be exactly one udta box of that size.
    std::vector<BoxEdit> edits(1);
    if (size != bytes.size || !userDataReplacement(bytes, edits[0])) {
        return QVMX::Failure{L"replaceUdta", L"the bytes are not one user data box, or the movie box cannot take it"};
    }
    return applyEdits(edits[0].from == edits[0].to ? L"replaceUdta_Append" : L"replaceUdta_Replace", edits);
}

bool Container::userDataReplacement(const ByteArray& bytes, BoxEdit& edit) {
    if (moov_ == nullptr || !moov_->hasChild()) return false;
    const uint64_t size = bytes.size;
    if (size < 8 || std::memcmp(bytes.data + 4, "udta", 4) != 0) return false;
    const uint32_t declared = readBE32(bytes.data);
    if (declared != size && !(declared == 1 && size >= 16 && readBE64(bytes.data + 8) == size)) {
        return false;
    }
    auto& moov = static_cast<NestedBox&>(*moov_);
    edit = BoxEdit{};
    edit.bytes = bytes;
    edit.holders = holdersFrom(moov);
    const auto udta = std::find_if(moov.children.begin(), moov.children.end(),
                                   [](const auto& child) { return child->isType(fourcc("udta")); });
    if (udta != moov.children.end()) {
        edit.from = (*udta)->start;
        edit.to = (*udta)->end();
        edit.anchor = (*udta)->start;
    } else {
        if (moov.children.size() < 3) return false;
        const BOX& last = *moov.children.back();
        edit.from = edit.to = last.end();
        edit.anchor = last.start;
    }
    return true;
}

QVMX::Status Container::appendTopLevel(const std::wstring& name, const ByteArray& bytes) {
    if (!batching_) return alone([&] { return appendTopLevel(name, bytes); });
    BoxEdit append;
    append.bytes = bytes;
    return appendTopLevel(name, std::move(append));
}

QVMX::Status Container::appendTopLevel(const std::wstring& name, BoxEdit append) {
    if (!root_) return QVMX::Failure{name, L"the file could not be read"};
    std::vector<BoxEdit> edits;
    // Readers find a fragment index from the end of the file: what is
    // appended goes in front of it.
    const BOX* index = trailingIndex();
    const uint64_t at = index != nullptr ? index->start : root_->size;
    if (index == nullptr && !root_->children.empty()) {
        // A last box that runs to the end of the file gets its real size, so
        // that what is appended stays outside it.
        const BOX& last = *root_->children.back();
        BinFile file(path_, 'r');
        if (!file.isOpen()) return QVMX::Failure{name, QVMX::systemCause(file.error())};
        file.setLimit(BinFile::kNoLimit);
        file.seek(last.start);
        const bool patched = std::any_of(batch_.begin(), batch_.end(), [&last](const BoxEdit& e) {
            return e.holders.empty() && e.from == last.start && e.to == last.start + 4;
        });
        if (!patched && !last.largeSize && last.end() == file.length() && file.read32() == 0) {
            if (last.size > 0xFFFFFFFFull) return QVMX::Failure{name, L"the last box is too large for its size field"};
            BoxEdit size;
            size.from = last.start;
            size.to = last.start + 4;
            size.bytes.append32be(static_cast<uint32_t>(last.size));
            size.anchor = last.start;
            edits.push_back(std::move(size));
        }
    }
    append.from = append.to = append.anchor = at;
    append.holders.clear();
    edits.push_back(std::move(append));
    return applyEdits(name, edits);
}

}  // namespace MP4
