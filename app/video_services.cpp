#include "app/video_services.h"

#include "foundation/wchar.h"
#include "meta/media_services.h"
#include "video/thumbnailer.h"
#include "video/video_reader.h"

bool describeMovie(const std::wstring& movie, MovieDescription& out) {
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

namespace {

bool thumbnailBytes(const std::wstring& movie, ByteArray& out, int width, size_t target) {
    Thumbnailer thumbnailer(movie);
    return thumbnailer.saveFrame(out, width, target);
}

}  // namespace

void installVideoServices() {
    MediaServices& services = mediaServices();
    services.describe = describeMovie;
    services.thumbnail = thumbnailBytes;
}
