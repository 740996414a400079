#include "app/maker_thumbnail.h"

#include "app/media_plugin.h"
#include "app/media_plugin_loader.h"

void EarlyThumbnail::start() {
    made_ = std::async(std::launch::async, [movie = movie_, room = room_, fullRange = fullRange_] {
        Made made;
        if (MediaPlugin* plugin = mediaPlugin()) {
            made.ok = plugin->thumbnailBytes(movie, made.jpeg, kMakerThumbnailWidth, room, fullRange);
        }
        return made;
    });
}

EarlyThumbnail::EarlyThumbnail(const std::wstring& movie, size_t room, std::optional<bool> fullRange, bool whenAsked)
    : movie_(movie), room_(room), fullRange_(fullRange) {
    if (!whenAsked) start();
    MediaServices& services = mediaServices();
    previous_ = services.deferThumbnail;
    services.deferThumbnail = [this](const std::wstring& asked, int width,
                                     size_t target) -> std::optional<DeferredThumbnail> {
        if (asked == movie_ && width == kMakerThumbnailWidth && target == room_ && !asked_) {
            asked_ = true;
            if (!made_.valid()) start();
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
