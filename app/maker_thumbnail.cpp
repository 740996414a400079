#include "app/maker_thumbnail.h"

#include "app/media_plugin.h"
#include "app/media_plugin_loader.h"

EarlyThumbnail::EarlyThumbnail(const std::wstring& movie, size_t room, std::optional<bool> fullRange)
    : movie_(movie), room_(room) {
    made_ = std::async(std::launch::async, [movie, room, fullRange] {
        Made made;
        if (MediaPlugin* plugin = mediaPlugin()) {
            made.ok = plugin->thumbnailBytes(movie, made.jpeg, kMakerThumbnailWidth, room, fullRange);
        }
        return made;
    });
    MediaServices& services = mediaServices();
    previous_ = services.deferThumbnail;
    services.deferThumbnail = [this](const std::wstring& asked, int width,
                                     size_t target) -> std::optional<DeferredThumbnail> {
        if (asked == movie_ && width == kMakerThumbnailWidth && target == room_ && !asked_) {
            asked_ = true;
            // The copy puts it in when it reaches the box.
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
