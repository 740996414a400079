#include "app/maker_thumbnail.h"

#include <algorithm>
#include <vector>

#include "app/media_plugin.h"
#include "app/media_plugin_loader.h"
#include "foundation/file_io.h"
#include "mp4/box.h"
#include "mp4/container.h"

namespace {

// The box the user-data copy fills: the first direct child of the first
// udta of at least 9 bytes, with a 32-bit size.
const MP4::BOX* thumbnailBox(MP4::Container& container) {
    const MP4::BOX* found = nullptr;
    bool first = true;
    container.find("moov.udta", [&](MP4::BOX& udta) {
        if (!first || !udta.hasChild()) return false;
        first = false;
        for (const auto& child : static_cast<MP4::NestedBox&>(udta).children) {
            if (child->isType(MP4::fourcc("KTHU")) && child->size >= 9 && !child->largeSize) {
                found = child.get();
                break;
            }
        }
        return false;
    });
    return found;
}

}  // namespace

EarlyThumbnail::Made EarlyThumbnail::make(const std::wstring& movie, size_t room) {
    Made made;
    if (MediaPlugin* plugin = mediaPlugin()) made.ok = plugin->thumbnailBytes(movie, made.jpeg, kMakerThumbnailWidth, room);
    return made;
}

EarlyThumbnail::EarlyThumbnail(const std::wstring& movie, size_t room, bool fromOutput)
    : movie_(movie), room_(room), fromOutput_(fromOutput) {
    if (!fromOutput) made_ = std::async(std::launch::async, [movie, room] { return make(movie, room); });
    MediaServices& services = mediaServices();
    previous_ = services.deferThumbnail;
    services.deferThumbnail = [this](const std::wstring& asked, int width,
                                     size_t target) -> std::optional<DeferredThumbnail> {
        if (asked == movie_ && width == kMakerThumbnailWidth && target == room_ && !asked_) {
            asked_ = true;
            // Of the finished output: its box is filled afterwards.
            if (fromOutput_) {
                deferred_ = true;
                return DeferredThumbnail{};
            }
            // Of the source: the copy puts it in when it reaches the box.
            return DeferredThumbnail{[this](ByteArray& jpeg) {
                const Made made = made_.get();
                jpeg = made.jpeg;
                return made.ok;
            }};
        }
        return previous_ ? previous_(asked, width, target) : std::nullopt;
    };
}

EarlyThumbnail::~EarlyThumbnail() {
    mediaServices().deferThumbnail = previous_;
    if (made_.valid()) made_.wait();
}

bool EarlyThumbnail::finish(const std::wstring& output) {
    if (!deferred_) return true;
    deferred_ = false;
    const Made made = make(output, room_);

    MP4::Container container;
    if (!container.attach(output)) return false;
    const MP4::BOX* box = thumbnailBox(container);
    if (box == nullptr || box->size != room_ + 8) return false;
    const uint64_t start = box->start;
    bool written = false;
    QVMX::FileIO::open_a(output, [&](QVMX::FileIO& file) {
        // The copy left the payload zero-filled.
        std::vector<uint8_t> payload(room_);
        if (!file.seek_set(start + 8) || file.read(payload.data(), payload.size()) != payload.size() ||
            std::any_of(payload.begin(), payload.end(), [](uint8_t b) { return b != 0; })) {
            return;
        }
        if (made.ok && made.jpeg.size <= room_) {
            written = file.seek_set(start + 8) && file.write(made.jpeg.data, made.jpeg.size) == made.jpeg.size;
        } else {
            written = file.seek_set(start + 4) && file.write(reinterpret_cast<const uint8_t*>("free"), 4) == 4;
        }
    });
    return written;
}
