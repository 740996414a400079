#include "meta/full_range_edit.h"

#include "foundation/notices.h"
#include "h264/range_flags.h"
#include "mp4/avcc_box.h"
#include "mp4/box_edits.h"
#include "mp4/container.h"

namespace meta {

namespace {

// The edit that makes the movie's SPS declare the range, in its last avcC
// (with several, the last one decides); false when none is made, failed
// set when the box cannot be replaced. tell: print the flags the movie
// declared and gets, and why no edit could be made.
bool rangeReplacement(MP4::Container& movie, bool fullRange, bool tell, MP4::BoxEdit& edit, bool& failed) {
    failed = false;
    const MP4::AVCC* avcc = nullptr;
    ByteArray box;
    movie.find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [&](MP4::BOX& found) {
        avcc = dynamic_cast<const MP4::AVCC*>(&found);
        box.clear();
        if (avcc == nullptr) return true;
        H264::RangeFlags was;
        auto record = H264::withRange(avcc->payload, fullRange, was);
        if (!record) {
            if (tell) {
                QVMX::Notices::post(L"%ls failed: %ls\n", record.failure().where.c_str(),
                                    record.failure().cause.c_str());
            }
            return true;
        }
        if (tell) {
            QVMX::Notices::post(
                L"Container::appendFullRangeAndConstrainedSet1Flag: %d - %d, constrained_set1_flag:  %d - 1\n",
                was.fullRange ? 1 : 0, fullRange ? 1 : 0, was.constrainedSet1 ? 1 : 0);
        }
        if (was.fullRange != fullRange || !was.constrainedSet1) box = MP4::AVCC::boxWith(*record);
        return true;
    });
    if (avcc == nullptr || box.empty()) return false;
    if (movie.replacementEdit(*avcc, box, edit)) return true;
    if (tell) {
        QVMX::Notices::post(L"Container::modifyContainer::appendFullRangeAndConstrainedSet1Flag(%ls) failed.\n",
                            movie.path().c_str());
    }
    failed = true;
    return false;
}

}  // namespace

bool rangeEdit(MP4::Container& movie, bool fullRange, std::vector<MP4::BoxEdit>& edits) {
    MP4::BoxEdit edit;
    bool failed = false;
    if (!rangeReplacement(movie, fullRange, true, edit, failed)) return !failed;
    edits.push_back(std::move(edit));
    return true;
}

std::optional<bool> declaredRange(MP4::Container& movie, bool fullRange) {
    MP4::BoxEdit edit;
    bool failed = false;
    if (!rangeReplacement(movie, fullRange, false, edit, failed)) return std::nullopt;
    return fullRange;
}

QVMX::Status declareRange(MP4::Container& movie, bool fullRange) {
    std::vector<MP4::BoxEdit> edits;
    if (!rangeEdit(movie, fullRange, edits)) {
        return QVMX::Failure{L"appendFullRangeAndConstrainedSet1Flag", L"the configuration box cannot be replaced"};
    }
    if (edits.empty()) return {};
    return movie.applyEdits(L"appendFullRangeAndConstrainedSet1Flag", edits);
}

}  // namespace meta
