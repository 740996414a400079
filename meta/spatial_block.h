#pragma once

// The spatial-data block of the newest cameras: a top-level uuid box that
// holds the spatial audio's bytes ("KADT") and a complete track describing
// them ("KATR"). "KDT9" in the movie's user data locates it: the block's
// start and size, 64 bits each, after the box header.
#include <cstdint>
#include <memory>

#include "foundation/byte_array.h"
#include "foundation/failure.h"
#include "foundation/file_io.h"
#include "mp4/box.h"
#include "mp4/box_edits.h"
#include "mp4/uuid_box.h"

namespace MP4 {
class Container;
}

namespace meta {

class SpatialSound;

extern const MP4::UserType kSpatialDataUuid;

// Lets the parser see the block's children. Movies parsed before it is
// called show the block as an opaque uuid box; the builder calls it when it
// is made, and it is made before any movie of a run is read.
void knowSpatialBlock();

// The top-level block, or null.
MP4::BOX* spatialBlock(MP4::Container& container);

// The first box at path (starting "uuid.") whose parent is the spatial-data
// uuid box; KADT and KATR are only looked at when they are at least 9 bytes.
MP4::BOX* firstSpatialChild(MP4::Container& container, const char* path);

// Where a block lands in the new file and how large it is.
struct BlockPlace {
    uint64_t start = 0;
    uint64_t size = 0;
};

// The edit that appends source's block (read from file, parsed as source)
// to the output at place.start: whole, or cut to what sound keeps when it
// was built. The track's chunk offsets name the new place; the audio is
// copied from the file, not held. False when the source has no whole block
// with its track, or the kept range does not lie in it.
bool spatialBlockEdit(MP4::Container& source, const std::shared_ptr<QVMX::FileIO>& file, const SpatialSound& sound,
                      BlockPlace& place, MP4::BoxEdit& edit);

// Points the KDT9 box inside userData (a whole udta box) at place; true
// when there is none. False when one is there but too short.
bool pointLocator(ByteArray& userData, const BlockPlace& place);
// Only a KDT9 that names the block at from gets the new start; its size
// stays as it is.
bool followLocator(ByteArray& userData, uint64_t from, uint64_t to);

// A KDT9 of the movie's user data made to name the movie's block, where
// it is now (for movies put together box by box).
QVMX::Status locateBlock(MP4::Container& movie);

// In a batch, after every edit that moves bytes: a KDT9 of the movie's user
// data that names the movie's block follows it to where the batch puts it.
QVMX::Status followLocator(MP4::Container& movie);

}  // namespace meta
