// Location boxes of the movie's user data.
#include <vector>

#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace MP4 {

namespace {
// The short loci form, without the two trailing strings.
constexpr uint64_t kBadLociSize = 28;
}  // namespace

bool Container::removeBadLOCI() {
    BOX* loci = nullptr;
    find("moov.udta.loci", [&loci](BOX& box) {
        if (loci == nullptr) loci = &box;
        return false;
    });
    if (loci == nullptr || loci->size != kBadLociSize) return true;
    std::vector<BoxEdit> edits(1);
    edits[0].from = loci->start;
    edits[0].to = loci->end();
    edits[0].anchor = loci->start;
    edits[0].holders = holdersFrom(*loci->parent);
    return applyEdits(L"removeBadLOCI", edits);
}

}  // namespace MP4
