// The tavrel-media plug-in: the video pipeline behind the MediaPlugin
// interface. Only its entry point is visible from outside.
#include "app/media_plugin.h"

#include <type_traits>

#include "foundation/notices.h"
#include "foundation/wchar.h"
#include "video/thumbnailer.h"
#include "video/video_reader.h"

namespace {

class VideoPipeline final : public MediaPlugin {
public:
    bool describe(const std::wstring& movie, MovieDescription& out) override {
        QVMXVideoReader reader;
        QVMX::FrameSize size;
        QVMX::MediaTime duration = QVMX::MediaTime::zero();
        float frameRate = 0.0f;
        if (!reader.describeSource(QVMX::wchar::wcs2mbs(movie).c_str(), size, duration, frameRate)) return false;
        out.frameRate = frameRate;
        out.width = static_cast<int>(size.width);
        out.height = static_cast<int>(size.height);
        return true;
    }

    bool thumbnailBytes(const std::wstring& movie, ByteArray& out, int width, size_t target,
                        std::optional<bool> fullRange) override {
        Thumbnailer thumbnailer(movie);
        thumbnailer.fullRange = fullRange;
        return thumbnailer.saveFrame(out, width, target);
    }

    bool saveThumbnail(const std::wstring& movie, const std::wstring& jpeg) override {
        Thumbnailer thumbnailer(movie);
        return thumbnailer.saveFrame(jpeg);
    }

    TrimResult reencode(const Option& option, const std::wstring& writeTo) override {
        return TavrelTranscoder::trim(option, writeTo);
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) MediaPlugin* tavrel_media_plugin(int version) {
    static VideoPipeline pipeline;
    // The plug-in holds its own copy of the libraries below it: their
    // notices go to the console from here too.
    static const bool notices = (QVMX::Notices::install(QVMX::Notices::toConsole()), true);
    (void)notices;
    return version == kMediaPluginVersion ? &pipeline : nullptr;
}

// The loader calls it through this type.
static_assert(std::is_same_v<decltype(&tavrel_media_plugin), MediaPluginEntry>);
