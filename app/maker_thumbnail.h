#pragma once

// The newest cameras' maker thumbnail in a metadata run: the source's first
// frame, made on a thread of its own while the run checks, reads and copies
// the movie (loading the media libraries and decoding the frame cost more
// than the rest of such a run), and put into the user data by the copy as
// it writes it. A re-encode's is made of the finished output and put into
// its zero-filled box afterwards (finish).
#include <cstddef>
#include <future>
#include <string>

#include "foundation/byte_array.h"
#include "meta/media_services.h"

class EarlyThumbnail {
public:
    // Starts making the thumbnail of movie for a box of room payload bytes.
    // While this object lives, the user-data copy of movie leaves that box
    // for it. fromOutput: the thumbnail is made at finish, of the finished
    // output (a re-encode's output declares its colour range only once it
    // is written).
    EarlyThumbnail(const std::wstring& movie, size_t room, bool fromOutput = false);
    // Waits for the thread and puts the services back.
    ~EarlyThumbnail();
    EarlyThumbnail(const EarlyThumbnail&) = delete;
    EarlyThumbnail& operator=(const EarlyThumbnail&) = delete;

    // Puts the thumbnail into output's box, as the copy would have: the
    // JPEG at the start of the payload, or, when none was made or none
    // fits, the box turned into free space. True when the copy left no box
    // for it; false when the box is not where and as the copy left it.
    bool finish(const std::wstring& output);

private:
    struct Made {
        bool ok = false;
        ByteArray jpeg;
    };

    // The first frame of movie as a JPEG for the box.
    static Made make(const std::wstring& movie, size_t room);

    std::wstring movie_;
    size_t room_;
    bool fromOutput_;
    std::future<Made> made_;
    // Whether the user-data copy asked for the thumbnail, and whether it
    // left the box for finish.
    bool asked_ = false;
    bool deferred_ = false;
    decltype(MediaServices::deferThumbnail) previous_;
};
