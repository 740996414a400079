#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/byte_array.h"
#include "foundation/failure.h"
#include "foundation/file_io.h"
#include "mp4/box.h"
#include "mp4/box_edits.h"
#include "mp4/container_boxes.h"
#include "mp4/uuid_box.h"

namespace MP4 {

class STCO;

// A range of bytes of a file, [from, to).
struct ByteRange {
    uint64_t from = 0;
    uint64_t to = 0;
};

// A movie file and its parsed box tree, and the plan of edits that writes
// a new movie from it: recorded between beginEdits and commitEdits, made in
// one copy. The tree is parsed again after a commit, so no box reference
// outlives one.
class Container {
public:
    static constexpr uint64_t kAll = ~uint64_t(0);

    using FileFn = std::function<void(QVMX::FileIO&)>;
    // Writes the whole new file; sets position to where its new content starts.
    using CopyFn = std::function<bool(BinFile& source, BinFile& destination, uint64_t& position)>;
    using FixFn = std::function<bool(Container& temporary, BinFile& file)>;
    // Where a byte of the source lies in the new file; false when it has no
    // place there.
    using OffsetMap = std::function<bool(uint64_t from, uint64_t& to)>;

    Container() = default;
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;
    ~Container();

    // --- the tree -------------------------------------------------------
    // Opens path for reading and parses bytes 0..end; false when it cannot
    // be opened (the tree is then empty).
    bool attach(const std::wstring& path, uint64_t end = kAll);
    void parse(BinFile& file, uint64_t end);
    void dump(const DumpLine& out) const;
    void find(const char* path, const BoxCallback& fn);
    void find(const std::string& path, const BoxCallback& fn) { find(path.c_str(), fn); }
    void if_not_found(const char* path, const std::function<void()>& fn);

    const std::wstring& path() const { return path_; }

    ROOT* root() const { return root_.get(); }
    BOX* mdat() const { return mdat_; }
    BOX* moov() const { return moov_; }
    BOX* videoTrack() const { return videoTrack_; }

    // --- the rewrite frame and chunk offsets --------------------------------
    bool open(const FileFn& fn);
    // Writes a whole new file with copyFn, then fixes it up: fixA sees the
    // boxes in front of the new content, fixB all of them. The new file goes
    // into the commit's target, or else replaces this one, and the container
    // then describes it. A failure names the step (name) and why it failed;
    // the notice line saying so is posted too.
    QVMX::Status modifyContainer(const std::wstring& name, const CopyFn& copyFn, const FixFn& fixA,
                                 const FixFn& fixB);
    QVMX::Status replaceUdta(uint64_t size, const ByteArray& bytes);
    // The edit that puts bytes (one whole udta box) in place of the movie's
    // user data, or at the end of the movie box when it has none.
    bool userDataReplacement(const ByteArray& bytes, BoxEdit& edit);
    static bool modifyBoxSize(BinFile& file, const BOX& box, int64_t delta);
    // Every chunk offset of every table, each moved to where its own bytes
    // went; checked whole before the first is written (a table whose entry
    // count runs past its box, or an offset that would leave the file or
    // its entry's width, fails it). Tables that lie in a settled range
    // (bytes an edit wrote, offsets already final) are left.
    bool followChunks(BinFile& file, const OffsetMap& where, const std::vector<ByteRange>& settled = {});
    // The moof offsets of the fragment random-access tables, the same way.
    bool followFragmentIndex(BinFile& file, const OffsetMap& where);
    // The absolute base data offsets of the track fragments, the same way.
    bool followFragmentBases(BinFile& file, const OffsetMap& where);
    // The absolute offsets of the sample tables' auxiliary information
    // (saio), the same way; tables in a settled range are left.
    bool followAuxInfoOffsets(BinFile& file, const OffsetMap& where, const std::vector<ByteRange>& settled = {});

    // Rewrites made between these two go into the file in one copy: each
    // operation only records its edits, and commitEdits writes them all.
    // Every edit is taken from the tree as it stood at beginEdits, so only
    // rewrites belong in between; a box recorded for removal counts as gone
    // for the operations that follow. With a target, the new movie is
    // written there (a plain copy when nothing was recorded) and this file
    // is never written; without one it replaces this file (and nothing is
    // written when nothing was recorded).
    void beginEdits();
    QVMX::Status commitEdits(const std::wstring& target = {});
    bool isBeingRemoved(const BOX& box) const;

    // --- relayout and time stamps ------------------------------------------
    bool isMdatFirst() const;
    QVMX::Status moovFirst();
    QVMX::Status updateTimeStamp(uint64_t time);

    // --- edits ----------------------------------------------------------------
    // One copy-frame rewrite making all the edits (or, in a batch, recorded
    // for its copy), with the holders' sizes and the chunk offsets of
    // whatever moved brought up to date.
    QVMX::Status applyEdits(const std::wstring& name, std::vector<BoxEdit>& edits);
    // Whether a box is at path and not on its way out in the batch.
    bool hasBox(const char* path);
    // Boxes added at the end of the movie's user data (a new udta when it
    // has none); false without a movie box or boxes.
    bool userDataEdit(const ByteArray& children, BoxEdit& edit);
    // Bytes in place of a box, its holders resized with it; false when the
    // box does not lie whole inside its holders and the file.
    bool replacementEdit(const BOX& box, const ByteArray& bytes, BoxEdit& edit) const;
    // A box taken out, its holders shrinking with it.
    void removalEdit(const BOX& box, BoxEdit& edit);
    // The edit that puts a uuid box of a kind in the video track: over an
    // existing one of that kind, else at the end of the track.
    bool trackUuidEdit(const ByteArray& box, const UserType& kind, BoxEdit& edit);
    bool hasTopLevelUuid(const UserType& kind);
    // The video track's first sample entry this format can look into
    // (avc1, avc3, hvc1, hev1), or null.
    BOX* videoSampleEntry();
    // Its bytes, header included; false when there is none, it is larger
    // than kMaxSampleEntry, or the file does not hold all of it.
    bool readVideoSampleEntry(ByteArray& bytes, BOX** entry = nullptr);
    // The edit that puts boxes right after the entry's configuration box,
    // taking out the entry's children of the same types (placeAfterConfiguration).
    bool sampleEntryEdit(const ByteArray& boxes, BoxEdit& edit);

    // --- metadata boxes ----------------------------------------------------
    // A box after every other (in front of a trailing fragment index); in
    // a batch, part of its one copy.
    QVMX::Status appendTopLevel(const std::wstring& name, const ByteArray& bytes);
    // The same for an edit made elsewhere (bytes borrowed from another file,
    // settled offsets); its place is set here. Only in a batch.
    QVMX::Status appendTopLevel(const std::wstring& name, BoxEdit append);
    // Where a byte of the source lands once the edits recorded in the
    // batch so far are committed (a relayout included); false when it has
    // no place in the new file.
    // extra: edits about to be recorded, counted as if they were.
    bool plannedOffset(uint64_t offset, uint64_t& to, const std::vector<BoxEdit>& extra = {}) const;
    // Where the next appendTopLevel of the batch would land.
    bool plannedAppendOffset(uint64_t& to, const std::vector<BoxEdit>& extra = {}) const;


private:
    void forget();
    // The file copied whole into target, which the container then describes.
    QVMX::Status copyInto(const std::wstring& target);
    // A batch of one for an operation called outside a batch.
    QVMX::Status alone(const std::function<QVMX::Status()>& record);
    // A fragment random-access box that ends the file, or null.
    const BOX* trailingIndex() const;
    // Every chunk-offset table of the tree.
    std::vector<const STCO*> chunkTables();
    bool mapChunkOffsets(BinFile& file, const std::vector<const STCO*>& tables, const OffsetMap& where);
    // The order moovFirst writes the top-level boxes in; false when the movie
    // box already comes first (or there is none).
    bool relayoutOrder(std::vector<const BOX*>& order) const;
    // moovFirst and the batch's edits in one copy.
    QVMX::Status relayoutWithEdits(const std::wstring& name, std::vector<BoxEdit>& edits);
    // updateTimeStamp's writes as edits of the batch.
    QVMX::Status timeStampEdits(uint64_t time);
    // The batch's edits and extra as its commit makes them, sorted.
    std::vector<BoxEdit> plannedEdits(const std::vector<BoxEdit>& extra) const;

    std::wstring path_;
    // Where the commit under way writes; empty: it replaces path_.
    std::wstring target_;
    bool batching_ = false;
    bool relayout_ = false;
    std::vector<BoxEdit> batch_;
    std::wstring batchName_;
    std::unique_ptr<ROOT> root_;
    BOX* mdat_ = nullptr;
    BOX* moov_ = nullptr;
    BOX* videoTrack_ = nullptr;
};

}  // namespace MP4
