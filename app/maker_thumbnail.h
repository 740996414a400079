#pragma once

// The newest cameras' maker thumbnail: the first frame of a movie, made on
// a thread of its own while the run reads and copies (loading the media
// libraries and decoding the frame cost more than the rest of a metadata
// run), and put into the user data by the copy as it writes it. A metadata
// run makes it of the source; a re-encode of its scratch file, in the
// colour range the output is to declare.
#include <cstddef>
#include <future>
#include <optional>
#include <string>

#include "foundation/byte_array.h"
#include "meta/media_services.h"

class EarlyThumbnail {
public:
    // Makes the thumbnail of movie for a box of room payload bytes, from
    // now on or (whenAsked) once the user-data copy of movie asks for it,
    // which it does while this object lives; fullRange, when set, is the
    // range movie is to declare once written. Started only when asked, a
    // run that fails before its copy gets to the user data decodes nothing.
    EarlyThumbnail(const std::wstring& movie, size_t room, std::optional<bool> fullRange = std::nullopt,
                   bool whenAsked = false);
    // Waits for the thread and puts the services back.
    ~EarlyThumbnail();
    EarlyThumbnail(const EarlyThumbnail&) = delete;
    EarlyThumbnail& operator=(const EarlyThumbnail&) = delete;

private:
    struct Made {
        bool ok = false;
        ByteArray jpeg;
    };

    void start();

    std::wstring movie_;
    size_t room_;
    std::optional<bool> fullRange_;
    std::future<Made> made_;
    // Whether the user-data copy asked for the thumbnail: it is given once.
    bool asked_ = false;
    decltype(MediaServices::deferThumbnail) previous_;
};
