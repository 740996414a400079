#pragma once

// What the tavrel-media plug-in does for the programs: everything that needs
// the media libraries (decoding, encoding, JPEG). The programs load it only
// for the runs that need it, as loading those libraries costs more than a
// metadata run. Only the standard library's and the project's own types
// cross this interface; both sides are built together from one tree.
#include <cstddef>
#include <optional>
#include <string>

#include "app/tavrel_transcoder.h"
#include "foundation/byte_array.h"
#include "meta/media_services.h"

struct Option;

class MediaPlugin {
public:
    virtual ~MediaPlugin() = default;

    // Frame rate and decoded picture size of the movie's first video track.
    virtual bool describe(const std::wstring& movie, MovieDescription& out) = 0;
    // The first frame as JPEG bytes of at most target bytes, scaled to
    // width x width/2. fullRange, when set, is the colour range the movie
    // is to declare (a scratch file before its metadata step): the frame is
    // read in it rather than in the range its stream says now.
    virtual bool thumbnailBytes(const std::wstring& movie, ByteArray& out, int width, size_t target,
                                std::optional<bool> fullRange) = 0;
    // The first frame at the movie's size as a JPEG file.
    virtual bool saveThumbnail(const std::wstring& movie, const std::wstring& jpeg) = 0;
    // The re-encode the options ask for, into writeTo.
    virtual TrimResult reencode(const Option& option, const std::wstring& writeTo) = 0;
};

// The plug-in's one exported symbol: its instance when it was built for
// this version of the interface, else null.
extern "C" {
using MediaPluginEntry = MediaPlugin* (*)(int version);
}
inline constexpr const char* kMediaPluginSymbol = "tavrel_media_plugin";
inline constexpr int kMediaPluginVersion = 2;
inline constexpr const char* kMediaPluginFile = "tavrel-media.so";
